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
#include <sys/socket.h>

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

}  // namespace
