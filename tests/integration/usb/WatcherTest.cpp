#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "tests/support/FakeDevice.h"
#include "tests/support/Namespace.h"
#include "tests/support/Uevent.h"
#include "tests/support/WatcherSession.h"

using lumacast::test::commandOutput;
using lumacast::test::FakeDevice;
using lumacast::test::kAcceptedCamera;
using lumacast::test::kernelUevent;
using lumacast::test::kPassStart;
using lumacast::test::kRefusedCamera;
using lumacast::test::runIsolated;
using lumacast::test::sendUevent;
using lumacast::test::UsbProduct;
using lumacast::test::WatcherSession;
using namespace std::chrono_literals;

namespace {

constexpr const char* kAdd = "processCameraAdd";
constexpr const char* kRemove = "processCameraRemove";
constexpr const char* kHandle = "[ORB]lumacast USBEventInterrupt::handleUevent";

std::string refusal(int videoId, int usbId) {
    return "lumacast USBEventInterrupt::checkConnectedDevice videoId:" + std::to_string(videoId) +
           ", usbId:" + std::to_string(usbId) + " not VANTIR_BOTH";
}

// What the "tv" side looks like at the moment of a call to the service.
std::string networkState() {
    return "addr[" + commandOutput("ip -4 -o addr show dev usb0 2>/dev/null") + "] link[" +
           commandOutput("ip -o link show dev usb0 2>/dev/null") + "] rule[" +
           commandOutput("ip rule show") + "] route[" +
           commandOutput("ip route show table 100 2>/dev/null") + "] sysfs[" +
           (access("/sys/class/net/usb0/device/uevent", F_OK) == 0 ? "yes" : "no") + "]";
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

void expectCameraNetwork(const std::string& state) {
    EXPECT_TRUE(has(state, "inet 192.168.111.3/24")) << state;
    EXPECT_TRUE(has(state, "<BROADCAST,")) << state;
    EXPECT_TRUE(has(state, ",UP")) << state;
    EXPECT_TRUE(has(state, "to 192.168.111.0/24 lookup 100")) << state;
    EXPECT_TRUE(has(state, "192.168.111.0/24 dev usb0 proto static scope link")) << state;
}

// Fake device set up, session created (its uevent socket open), probe installed.
void onFakeDevice(const std::function<void(FakeDevice&, WatcherSession&)>& body) {
    EXPECT_TRUE(runIsolated([&] {
        FakeDevice device;
        std::string why;
        ASSERT_TRUE(device.setUp(&why)) << why;
        WatcherSession session;
        session.client.setProbe(networkState);
        body(device, session);
    }));
}

bool threadAlive(const char* name) {
    DIR* dir = opendir("/proc/self/task");
    if (dir == nullptr) return false;
    bool found = false;
    while (struct dirent* e = readdir(dir)) {
        if (e->d_name[0] == '.') continue;
        const std::string path = std::string("/proc/self/task/") + e->d_name + "/comm";
        FILE* f = fopen(path.c_str(), "r");
        if (f == nullptr) continue;
        char comm[32] = {};
        if (fgets(comm, sizeof(comm), f) != nullptr &&
            strcmp(comm, (std::string(name) + "\n").c_str()) == 0) {
            found = true;
        }
        fclose(f);
    }
    closedir(dir);
    return found;
}

// The type readdir reports for `name` in `dir`, or -1.
int entryType(const char* dir, const char* name) {
    DIR* d = opendir(dir);
    if (d == nullptr) return -1;
    int type = -1;
    while (struct dirent* e = readdir(d)) {
        if (strcmp(e->d_name, name) == 0) type = e->d_type;
    }
    closedir(d);
    return type;
}

}  // namespace

// The camera is attached before the watcher starts: the socket opens after the plug, so the
// start-up scan is the only way to notice it. Plugs that come with their uevents, and plugs
// after an unplug, are the other tests'.
TEST(WatcherTest, PlugAndUnplugInKernelOrder) {
    EXPECT_TRUE(runIsolated([] {
        FakeDevice device;
        std::string why;
        ASSERT_TRUE(device.setUp(&why)) << why;
        ASSERT_TRUE(device.plug(kAcceptedCamera));
        // As on a TV, the node is a character device, also to the directory scan.
        EXPECT_EQ(DT_CHR, entryType("/dev", "video0"));
        WatcherSession session;
        session.client.setProbe(networkState);
        // As the device's uevent library may open it; the watcher must not let every
        // "ip" child of the network set-up inherit it.
        ASSERT_EQ(0, fcntl(uevent_get_fd(), F_SETFD, 0));
        session.start();
        // The service reads the flag from its binder threads while the watcher writes it.
        std::atomic<bool> reading{true};
        std::thread reader([&] {
            while (reading) (void)session.watcher().mKeepAlive.load();
        });
        ASSERT_TRUE(session.client.waitFor(kAdd, 1));
        ASSERT_TRUE(session.settle());
        EXPECT_EQ(FD_CLOEXEC, fcntl(uevent_get_fd(), F_GETFD) & FD_CLOEXEC);
        EXPECT_EQ(0u, session.log.count(kHandle));
        EXPECT_EQ(1u, session.client.calls().size());
        expectCameraNetwork(session.client.calls().back().probe);
        EXPECT_TRUE(has(commandOutput("ip route get 192.168.111.10"),
                        "dev usb0 table 100 src 192.168.111.3"));
        EXPECT_TRUE(session.watcher().mKeepAlive);

        ASSERT_TRUE(device.unplug());
        ASSERT_TRUE(session.client.waitFor(kRemove, 1));
        ASSERT_TRUE(session.settle());
        EXPECT_EQ(1u, session.client.count(kRemove));
        EXPECT_EQ(1u, session.client.count(kAdd));
        // Reported only once the network function had gone.
        const std::string state = session.client.calls().back().probe;
        EXPECT_TRUE(has(state, "sysfs[no]")) << state;
        EXPECT_TRUE(has(state, "link[]")) << state;
        reading = false;
        reader.join();
    }));
}

TEST(WatcherTest, VideoBeforeNetworkThenVideoRemovedWhileNetworkRemains) {
    onFakeDevice([](FakeDevice& device, WatcherSession& session) {
        session.start();
        ASSERT_TRUE(session.log.waitFor(refusal(-2, -2), 10s));
        ASSERT_TRUE(
                device.addVideoFunction(0, lumacast::test::videoFunctionUevent(kAcceptedCamera)));
        ASSERT_TRUE(device.sendVideoUevent("add", 0));
        ASSERT_TRUE(session.log.waitFor(refusal(0, -2), 10s));
        ASSERT_TRUE(session.settle());
        EXPECT_EQ(0u, session.client.count(kAdd));

        // The kernel's own add uevents for usb0 retry the pass.
        ASSERT_TRUE(device.addNetworkFunction(
                0, lumacast::test::networkFunctionUevent(kAcceptedCamera)));
        ASSERT_TRUE(session.client.waitFor(kAdd, 1));
        ASSERT_TRUE(session.settle());
        EXPECT_EQ(1u, session.client.count(kAdd));

        ASSERT_TRUE(device.removeVideoFunction(0));
        ASSERT_TRUE(device.sendVideoUevent("remove", 0));
        ASSERT_TRUE(session.log.waitFor(
                "USBEventInterrupt::parseUevent /sys/class/net/usb0/device/uevent exist", 10s));
        ASSERT_TRUE(device.removeNetworkFunction(0));
        ASSERT_TRUE(session.settle());
        EXPECT_EQ(0u, session.client.count(kRemove));

        // The camera still counts as set up: a new add stops at once.
        const size_t passes = session.log.count(kPassStart);
        ASSERT_TRUE(sendUevent(kernelUevent("add", "/devices/platform/x/1-1:1.2", "usb")));
        ASSERT_TRUE(
                sendUevent(kernelUevent("change", "/devices/x/video4linux/video0", "video4linux")));
        ASSERT_TRUE(session.settle());
        EXPECT_EQ(passes + 2, session.log.count(kPassStart));
        EXPECT_EQ(1u, session.client.count(kAdd));

        ASSERT_TRUE(device.sendVideoUevent("remove", 0));
        ASSERT_TRUE(session.client.waitFor(kRemove, 1));
        ASSERT_TRUE(session.settle());
        EXPECT_EQ(1u, session.client.count(kRemove));
    });
}

// The two functions are judged separately, and the video node is judged last (its model
// decides the heartbeat). A refused one leaves the network untouched; the removal is still
// reported, and the service ignores what it never saw added.
TEST(WatcherTest, OnlyCamerasWithBothFunctionsAcceptedAreSetUp) {
    constexpr UsbProduct kNoHeartbeat{0x0416, 0x5030, 0x0001};
    struct Case {
        UsbProduct video;
        UsbProduct network;
        bool accepted;
        bool keepAlive;
    };
    const Case cases[] = {{kRefusedCamera, kRefusedCamera, false, false},
                          {kAcceptedCamera, kRefusedCamera, false, false},
                          {kRefusedCamera, kAcceptedCamera, false, false},
                          {kNoHeartbeat, kAcceptedCamera, true, false},
                          {kAcceptedCamera, kNoHeartbeat, true, true}};
    onFakeDevice([&](FakeDevice& device, WatcherSession& session) {
        session.start();
        ASSERT_TRUE(session.log.waitFor(refusal(-2, -2), 10s));
        size_t adds = 0;
        size_t removes = 0;
        for (const Case& c : cases) {
            SCOPED_TRACE(lumacast::test::productLine(c.video) + " " +
                         lumacast::test::productLine(c.network));
            const size_t refusals = session.log.count(refusal(0, 0));
            ASSERT_TRUE(device.plug(c.video, c.network, 0, 0));
            if (c.accepted) {
                ASSERT_TRUE(session.client.waitFor(kAdd, ++adds));
            } else {
                ASSERT_TRUE(session.log.waitFor(refusal(0, 0), 10s, refusals + 1));
            }
            ASSERT_TRUE(session.settle());
            EXPECT_EQ(adds, session.client.count(kAdd));
            if (c.accepted) {
                EXPECT_EQ(c.keepAlive, session.watcher().mKeepAlive.load());
            } else {
                const std::string state = networkState();
                EXPECT_FALSE(has(state, "192.168.111.3")) << state;
                EXPECT_FALSE(has(state, "lookup 100")) << state;
                EXPECT_FALSE(has(state, ",UP")) << state;
            }
            ASSERT_TRUE(device.unplug());
            ASSERT_TRUE(session.client.waitFor(kRemove, ++removes));
            ASSERT_TRUE(session.settle());
        }
    });
}

// A failed set-up leaves the camera unknown; the next add uevent tries again.
TEST(WatcherTest, FailedSetUpIsRetriedByTheNextAddUevent) {
    constexpr const char* kFailed =
            "lumacast USBEventInterrupt::checkConnectedDevice set usb & camera ip failed";
    onFakeDevice([](FakeDevice& device, WatcherSession& session) {
        // Fifteen records ahead of usb0 hide it from the interface list.
        for (int i = 1; i <= 15; ++i) {
            ASSERT_EQ(0, lumacast::test::runCommand("ip addr add 10.99.0." + std::to_string(i) +
                                                    "/32 dev lo"));
        }
        session.start();
        ASSERT_TRUE(device.plug(kAcceptedCamera));
        ASSERT_TRUE(session.log.waitFor(kFailed, 10s));
        ASSERT_TRUE(session.settle());
        EXPECT_EQ(0u, session.client.count(kAdd));

        ASSERT_EQ(0, lumacast::test::runCommand("ip addr flush dev lo label lo && "
                                                "ip addr add 127.0.0.1/8 dev lo"));
        ASSERT_TRUE(sendUevent(kernelUevent("add", "/devices/platform/x/1-1:1.2", "usb")));
        ASSERT_TRUE(session.client.waitFor(kAdd, 1));
        expectCameraNetwork(session.client.calls().back().probe);
    });
}

// The header is read from a 255-byte window that always stays terminated. A flood arriving
// while a pass runs overflows the socket; what is left is handled, the camera is set up
// once and its removal still gets through.
TEST(WatcherTest, OversizedMessagesAndAFloodLoseNothingThatMatters) {
    onFakeDevice([](FakeDevice& device, WatcherSession& session) {
        session.start();
        ASSERT_TRUE(session.log.waitFor(refusal(-2, -2), 10s));
        const std::string marker = "/video4linux/video";
        // The digit would be byte 256: cut off, so no video node is named.
        std::string cut = "add@" + std::string(255 - 4 - marker.size(), 'B') + marker + "0";
        ASSERT_EQ(256u, cut.size());
        ASSERT_TRUE(sendUevent(cut + std::string(4000, 'B')));
        ASSERT_TRUE(sendUevent(std::string(1, '\0')));
        ASSERT_TRUE(sendUevent("add@" + std::string(300, 'A') + marker + "0" +
                               std::string(1, '\0') + "ACTION=add"));
        ASSERT_TRUE(session.settle());
        EXPECT_EQ(1u, session.log.count(kPassStart));
        EXPECT_EQ(3u, session.log.count(kHandle));

        // Unterminated, but the marker lies inside the window: a pass runs.
        ASSERT_TRUE(sendUevent("add@/devices/x" + marker + "0" + std::string(3000, 'C')));
        ASSERT_TRUE(session.log.waitFor(refusal(-2, -2), 10s, 2));
        EXPECT_EQ(2u, session.log.count(kPassStart));

        ASSERT_TRUE(device.plug(kAcceptedCamera));
        ASSERT_TRUE(session.log.waitFor(kPassStart, 2s, 3));
        const std::string video0 = "/devices/x/video4linux/video0";
        const std::string flood[] = {
                kernelUevent("change", video0, "video4linux"),
                kernelUevent("change", video0, "video4linux", {std::string(8000, 'L')}),
                std::string(600, 'U'),  // no terminator anywhere
                std::string(1, '\0')};
        for (int i = 0; i < 3000; ++i) sendUevent(flood[i % 4]);
        ASSERT_TRUE(session.client.waitFor(kAdd, 1));
        ASSERT_TRUE(session.settle());
        EXPECT_EQ(1u, session.client.count(kAdd));
        ASSERT_TRUE(device.unplug());
        ASSERT_TRUE(session.client.waitFor(kRemove, 1));
        ASSERT_TRUE(session.settle());
        EXPECT_EQ(1u, session.client.count(kRemove));
        EXPECT_EQ(1u, session.client.count(kAdd));
        EXPECT_TRUE(session.stop());
    });
}

TEST(WatcherTest, DestructionNeverWaitsForAUevent) {
    onFakeDevice([](FakeDevice& device, WatcherSession& session) {
        // During the start-up scan.
        session.start();
        EXPECT_TRUE(session.stop());
        EXPECT_FALSE(threadAlive("ThreadUEvent"));

        // Idle in the loop, with no uevent ever coming.
        session.start();
        ASSERT_TRUE(session.log.waitFor(refusal(-2, -2), 10s, 2));
        ASSERT_TRUE(threadAlive("ThreadUEvent"));
        EXPECT_TRUE(session.stop());
        EXPECT_FALSE(threadAlive("ThreadUEvent"));

        // In the middle of a pass.
        ASSERT_TRUE(
                device.addVideoFunction(0, lumacast::test::videoFunctionUevent(kAcceptedCamera)));
        session.start();
        ASSERT_TRUE(session.log.waitFor(refusal(0, -2), 10s));
        ASSERT_TRUE(device.sendVideoUevent("add", 0));
        ASSERT_TRUE(session.log.waitFor(kPassStart, 10s, 4));
        EXPECT_TRUE(session.stop());
        EXPECT_FALSE(threadAlive("ThreadUEvent"));
    });
}
