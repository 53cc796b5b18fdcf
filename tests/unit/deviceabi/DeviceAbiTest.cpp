// The kernel interface records that the camera network set-up hands to ioctl(), checked on
// the word size of the build: the host, the 32-bit ARM build under qemu-arm and the device
// (this suite is in Android.bp's cc_test). The set-up assumes a 32-byte request record, a
// 512-byte interface list of 16 records, and a flags word that overlays the address family.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <stddef.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

constexpr size_t kInterfaceListBytes = 512;

TEST(DeviceAbiTest, RequestRecordLayout) {
    struct ifreq ifr;
    EXPECT_EQ(static_cast<size_t>(IFNAMSIZ), sizeof(ifr.ifr_name));
    EXPECT_EQ(0u, offsetof(struct ifreq, ifr_name));
    EXPECT_EQ(static_cast<size_t>(IFNAMSIZ), offsetof(struct ifreq, ifr_addr));
    EXPECT_EQ(offsetof(struct ifreq, ifr_addr), offsetof(struct ifreq, ifr_flags));
    if (sizeof(void*) == 4) {
        // The device's word size: a 32-byte record, 16 of them in the interface list.
        EXPECT_EQ(32u, sizeof(struct ifreq));
        EXPECT_EQ(16u, kInterfaceListBytes / sizeof(struct ifreq));
    } else {
        // A 64-bit build pads the union to a pointer pair; the list then holds fewer.
        EXPECT_LT(kInterfaceListBytes / sizeof(struct ifreq), 16u);
    }
}

TEST(DeviceAbiTest, FlagsWordOverlaysAddressFamily) {
    // Reusing an address request for the flags request sends the family's low bits too.
    struct ifreq ifr;
    memset(&ifr, 0, sizeof(ifr));
    struct sockaddr_in addr;
    memset(&addr, 0, sizeof(addr));
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = inet_addr("192.168.111.3");
    memcpy(&ifr.ifr_addr, &addr, sizeof(addr));
    ifr.ifr_flags |= IFF_UP | IFF_RUNNING;
    EXPECT_EQ(IFF_UP | IFF_BROADCAST | IFF_RUNNING, ifr.ifr_flags & 0xffff);
}

TEST(DeviceAbiTest, InterfaceListComesInWholeRecords) {
    // Read-only: lists this network namespace's interfaces with their IPv4 addresses.
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd, 0) << strerror(errno);
    std::vector<char> buf(kInterfaceListBytes, 0);
    struct ifconf ifc;
    memset(&ifc, 0, sizeof(ifc));
    ifc.ifc_len = static_cast<int>(buf.size());
    ifc.ifc_buf = buf.data();
    const int rc = ioctl(fd, SIOCGIFCONF, &ifc);
    const int saved = errno;
    close(fd);
    ASSERT_GE(rc, 0) << strerror(saved);
    ASSERT_GE(ifc.ifc_len, 0);
    ASSERT_LE(static_cast<size_t>(ifc.ifc_len), buf.size());
    EXPECT_EQ(0u, static_cast<size_t>(ifc.ifc_len) % sizeof(struct ifreq));

    const size_t records = static_cast<size_t>(ifc.ifc_len) / sizeof(struct ifreq);
    for (size_t i = 0; i < records; ++i) {
        const struct ifreq& r = ifc.ifc_req[i];
        const size_t nameLen = strnlen(r.ifr_name, IFNAMSIZ);
        EXPECT_GT(nameLen, 0u) << "record " << i;
        EXPECT_LT(nameLen, static_cast<size_t>(IFNAMSIZ)) << "record " << i;
        EXPECT_EQ(AF_INET, r.ifr_addr.sa_family) << r.ifr_name;
        if (std::string(r.ifr_name) == "lo") {
            struct sockaddr_in in;
            memcpy(&in, &r.ifr_addr, sizeof(in));
            EXPECT_STREQ("127.0.0.1", inet_ntoa(in.sin_addr));
        }
    }
}

}  // namespace
