#include <gtest/gtest.h>
#include <net/if.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "tests/support/FakeDevice.h"
#include "tests/support/Namespace.h"
#include "tests/support/TestEnv.h"
#include "tests/support/WatcherSession.h"

using android::lumacast::USBEventInterrupt;
using lumacast::test::commandOutput;
using lumacast::test::readFile;
using lumacast::test::runCommand;
using lumacast::test::WatcherSession;

namespace {

// The tests' own `ip` calls name the tool by its path, so that only the product's go
// through the shim below.
const std::string& realIp() {
    static const std::string path = [] {
        const std::string found = commandOutput("command -v ip");
        return found.substr(0, found.find('\n'));
    }();
    return path;
}
int ip(const std::string& args) { return runCommand(realIp() + " " + args); }
std::string ipOutput(const std::string& args) { return commandOutput(realIp() + " " + args); }

// Every `ip` the product runs by name goes through this shim, which appends its arguments
// to `log`; the directory is put first in PATH for the isolated child only.
void installIpShim(const std::string& dir, const std::string& log) {
    ASSERT_FALSE(realIp().empty());
    ASSERT_EQ(0, mkdir(dir.c_str(), 0755));
    const std::string shim = dir + "/ip";
    FILE* f = fopen(shim.c_str(), "w");
    ASSERT_NE(nullptr, f);
    fprintf(f, "#!/bin/sh\nprintf '%%s\\n' \"$*\" >> '%s'\nexec %s \"$@\"\n", log.c_str(),
            realIp().c_str());
    fclose(f);
    ASSERT_EQ(0, chmod(shim.c_str(), 0755));
    setenv("PATH", (dir + ":" + getenv("PATH")).c_str(), 1);
}

short interfaceFlags(const char* name) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct ifreq ifr;
    memset(&ifr, 0, sizeof(ifr));
    strncpy(ifr.ifr_name, name, IFNAMSIZ - 1);
    const int ret = ioctl(fd, SIOCGIFFLAGS, &ifr);
    close(fd);
    return ret == 0 ? ifr.ifr_flags : 0;
}

size_t occurrences(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t pos = text.find(part); pos != std::string::npos; pos = text.find(part, pos + 1)) {
        ++n;
    }
    return n;
}

// A watcher idling on an empty fake device, with every `ip` call it makes recorded in the
// file given to `body`.
void withIdleWatcher(
        const std::function<void(USBEventInterrupt&, WatcherSession&, const std::string&)>& body) {
    static int run = 0;
    const std::string dir = lumacast::test::testTempDir() + "/ipshim" + std::to_string(run++);
    const std::string ipLog = dir + ".log";
    const auto prepare = [&] {
        installIpShim(dir, ipLog);
        ASSERT_EQ(0, chdir(lumacast::test::testTempDir().c_str()));
    };
    const auto withLog = [&](USBEventInterrupt& watcher, WatcherSession& session) {
        body(watcher, session, ipLog);
    };
    lumacast::test::withIdleWatcher(withLog, prepare);
}

bool addVeth(const std::string& name) {
    static int peer = 0;
    return ip("link add '" + name + "' type veth peer name peer" + std::to_string(peer++)) == 0;
}

}  // namespace

// Refused set-ups change nothing; then usb0 gets its address, its whole flag word, the rule
// and the route.
TEST(NetworkSetupTest, AddressFlagsRuleAndRouteOnUsb0) {
    withIdleWatcher([](USBEventInterrupt& watcher, WatcherSession& session,
                       const std::string& ipLog) {
        EXPECT_FALSE(watcher.setDeviceIp("usb", 2, "192.168.111.3"));
        EXPECT_TRUE(
                session.log.contains("lumacast USBEventInterrupt::setDeviceIp ioctl:-1 failed!"));
        // A name cut to 15 characters would name another interface.
        ASSERT_TRUE(addVeth("usbusbusbusbusb"));
        EXPECT_FALSE(watcher.setDeviceIp("usbusbusbusbusb", 1, "192.168.111.3"));
        EXPECT_FALSE(
                watcher.setDeviceIp(std::string(100, 'u').c_str(), 123456789, "192.168.111.3"));
        EXPECT_EQ("", ipOutput("-4 addr show dev usbusbusbusbusb"));
        ASSERT_TRUE(addVeth("usb1"));
        EXPECT_FALSE(watcher.setDeviceIp("usb", 1, "192.168.111.300"));
        EXPECT_FALSE(watcher.setDeviceIp("usb", 1, nullptr));
        EXPECT_FALSE(watcher.setDeviceIp(nullptr, 1, "192.168.111.3"));
        EXPECT_EQ("", ipOutput("-4 addr show dev usb1"));
        ASSERT_TRUE(addVeth("usb0"));
        char netDevName[IFNAMSIZ] = {};
        EXPECT_FALSE(watcher.getNetDevName(netDevName));

        // The flag word is set as a whole: what was set before does not survive.
        ASSERT_EQ(0, ip("link set usb0 arp off promisc on allmulticast on multicast on"));
        ASSERT_TRUE(watcher.setDeviceIp("usb", 0, "192.168.111.3"));
        EXPECT_NE(std::string::npos,
                  ipOutput("-4 addr show dev usb0").find("inet 192.168.111.3/24"));
        // IFF_RUNNING follows the carrier, which the peer's end does not give.
        EXPECT_EQ(IFF_UP | IFF_BROADCAST, interfaceFlags("usb0") & ~IFF_RUNNING);

        ASSERT_TRUE(watcher.getNetDevName(netDevName));
        EXPECT_STREQ("usb0", netDevName);

        ASSERT_TRUE(watcher.addRoute(netDevName));
        EXPECT_EQ(
                "rule add to 192.168.111.0/24 table 100\n"
                "route add 192.168.111.0/24 dev usb0 proto static scope link table 100\n",
                readFile(ipLog));
        EXPECT_NE(std::string::npos, ipOutput("rule show").find("to 192.168.111.0/24 lookup 100"));
        EXPECT_NE(std::string::npos,
                  ipOutput("route show table 100")
                          .find("192.168.111.0/24 dev usb0 proto static scope link"));
        EXPECT_NE(std::string::npos,
                  ipOutput("route get 192.168.111.10").find("dev usb0 table 100"));

        // A second set-up runs both commands again; the route's "File exists" changes nothing.
        EXPECT_TRUE(watcher.addRoute(netDevName));
        EXPECT_EQ(4u, occurrences(readFile(ipLog), "\n"));
        EXPECT_EQ(2u, occurrences(ipOutput("rule show"), "to 192.168.111.0/24 lookup 100"));
        EXPECT_EQ(2u, session.log.count(
                              "lumacast USBEventInterrupt::addRoute add route success for usb0"));
    });
}

// The interface list is read into room for 16 records: an address behind them is not seen.
TEST(NetworkSetupTest, GetNetDevNameWantsTheAddressAndUsbInTheName) {
    withIdleWatcher([](USBEventInterrupt& watcher, WatcherSession&, const std::string&) {
        char name[IFNAMSIZ];
        ASSERT_TRUE(addVeth("xeth0"));
        ASSERT_EQ(0, ip("addr add 192.168.111.3/24 dev xeth0"));
        EXPECT_FALSE(watcher.getNetDevName(name));
        ASSERT_TRUE(addVeth("usb2"));
        ASSERT_EQ(0, ip("addr add 192.168.111.4/24 dev usb2"));
        EXPECT_FALSE(watcher.getNetDevName(name));
        // Loopback comes first: 127.0.0.1 and 12 more, xeth0 and usb2 make 15 records
        // ahead of myusb7.
        for (int i = 1; i <= 12; ++i) {
            ASSERT_EQ(0, ip("addr add 10.99.0." + std::to_string(i) + "/32 dev lo"));
        }
        ASSERT_TRUE(addVeth("myusb7"));
        ASSERT_EQ(0, ip("addr add 192.168.111.3/24 dev myusb7"));
        ASSERT_TRUE(watcher.getNetDevName(name));
        EXPECT_STREQ("myusb7", name);
        EXPECT_FALSE(watcher.getNetDevName(nullptr));
        ASSERT_EQ(0, ip("addr add 10.99.0.13/32 dev lo"));
        EXPECT_FALSE(watcher.getNetDevName(name));
    });
}

TEST(NetworkSetupTest, OnlyPlainUsbNamesReachTheShell) {
    withIdleWatcher([](USBEventInterrupt& watcher, WatcherSession& session,
                       const std::string& ipLog) {
        const char* refused[] = {"usb",
                                 "usb0;id",
                                 "usb;id>pwned",
                                 "eth0",
                                 "usb0 ",
                                 " usb0",
                                 "usb1$(touch pwned)",
                                 "usb12345678901234",
                                 "usb0\n",
                                 "USB0",
                                 "usb-1"};
        for (const char* name : refused) EXPECT_FALSE(watcher.addRoute(name)) << name;
        EXPECT_FALSE(watcher.addRoute(nullptr));
        EXPECT_FALSE(watcher.addRoute(""));
        EXPECT_EQ(2u, session.log.count(
                              "lumacast USBEventInterrupt::addRoute nullptr == netDevName err"));

        // A real interface with a hostile name holding the address is found, and refused.
        ASSERT_TRUE(addVeth("usb;id>pwned"));
        ASSERT_EQ(0, ip("addr add 192.168.111.3/24 dev 'usb;id>pwned'"));
        char name[IFNAMSIZ];
        ASSERT_TRUE(watcher.getNetDevName(name));
        EXPECT_STREQ("usb;id>pwned", name);
        EXPECT_FALSE(watcher.addRoute(name));

        EXPECT_EQ("", readFile(ipLog));
        EXPECT_NE(0, access("pwned", F_OK));
        EXPECT_EQ(std::string::npos, ipOutput("rule show").find("lookup 100"));
    });
}
