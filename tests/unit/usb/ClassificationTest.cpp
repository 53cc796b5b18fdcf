#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/FakeDevice.h"
#include "tests/support/WatcherSession.h"
#include "tools/devsim/DevSim.h"

using android::lumacast::USBEventInterrupt;
using lumacast::test::kAcceptedCamera;
using lumacast::test::kRefusedCamera;
using lumacast::test::WatcherSession;
using lumacast::test::withIdleWatcher;

namespace {

bool writeFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    return static_cast<bool>(out << text);
}

bool writeUevent(const std::string& classPath, int id, const std::string& text) {
    const std::string dir = "/sys/class/" + classPath + std::to_string(id) + "/device";
    std::error_code error;
    std::filesystem::create_directories(dir, error);
    return writeFile(dir + "/uevent", text);
}

}  // namespace

// Lines that split decide mKeepAlive whatever it was before; lines that do not split are
// refused and keep it.
TEST(VendorRangeTest, AcceptedPairsAndTheirKeepAlive) {
    struct Case {
        const char* line;
        bool accepted;
        bool keepAlive;
    };
    const Case cases[] = {
            {"PRODUCT=2bc5/604/100\n", true, true},
            {"PRODUCT=2BC5/0604/0100", true, true},
            {"PRODUCT=0x2bc5/0x604/1", true, true},
            {"PRODUCT=2bc5/605/100\n", false, false},
            {"PRODUCT=416/5041/1\n", true, true},
            {"PRODUCT=416/5044/1\n", true, true},
            {"PRODUCT=416/5030/1\n", true, false},
            {"PRODUCT=416/5042/1\n", true, false},
            {"PRODUCT=416/5050/1\n", true, false},
            {"PRODUCT=416/502f/1\n", false, false},
            {"PRODUCT=416/5051/1\n", false, false},
            {"PRODUCT=1d6b/102/1\n", true, false},
            {"PRODUCT=1d6b/102", true, false},
            {"PRODUCT=1d6b/103/1\n", false, false},
            {"PRODUCT=2bc6/604/1\n", false, false},
            {"PRODUCT=zz/604/100\n", false, false},
            // Wider than 32 bits must not wrap onto an accepted value.
            {"PRODUCT=100002bc5/604/100\n", false, false},
            {"PRODUCT=2bc5/100000604/1\n", false, false},
            {"PRODUCT=ffffffffffffffffffffffff2bc5/604/1\n", false, false},
            {"PRODUCT=-2bc5/604/1\n", false, false},
    };
    const char* lines[] = {"PRODUCT", "PRODUCT=", "PRODUCT=2bc5",  "PRODUCT=2bc5/", "PRODUCT=/",
                           "=/",      "",         "PRODUCT=2bc5\n"};
    withIdleWatcher([&](USBEventInterrupt& watcher, WatcherSession& session) {
        for (const Case& c : cases) {
            for (const char* before : {"PRODUCT=2bc5/604/1", "PRODUCT=1d6b/102/1"}) {
                std::string prime = before;
                watcher.isVendorInLumacastRange(&prime[0]);
                std::string line = c.line;
                EXPECT_EQ(c.accepted, watcher.isVendorInLumacastRange(&line[0])) << c.line;
                EXPECT_EQ(c.keepAlive, watcher.mKeepAlive.load()) << c.line << " after " << before;
            }
        }
        const char* kSplitError =
                "lumacast [orb]USBEventInterrupt::isVendorInLumacastRange string split error";
        const size_t splitErrors = session.log.count(kSplitError);
        for (bool keepAlive : {true, false}) {
            std::string prime = keepAlive ? "PRODUCT=416/5044/1" : "PRODUCT=416/5030/1";
            ASSERT_TRUE(watcher.isVendorInLumacastRange(&prime[0]));
            for (const char* text : lines) {
                std::string line = text;
                EXPECT_FALSE(watcher.isVendorInLumacastRange(&line[0])) << text;
                EXPECT_EQ(keepAlive, watcher.mKeepAlive.load()) << text;
            }
            EXPECT_FALSE(watcher.isVendorInLumacastRange(nullptr));
            EXPECT_EQ(keepAlive, watcher.mKeepAlive.load());
        }
        EXPECT_EQ(splitErrors + 2 * (std::size(lines) + 1), session.log.count(kSplitError));
    });
}

TEST(DeviceIdTest, FirstMatchingEntryAndItsNumber) {
    struct Case {
        const char* entry;
        int expected;
    };
    const Case cases[] = {
            {"video7", 7},           {"video0", 0},    {"video14", 14},
            {"video15", -2},         {"video2abc", 2}, {"xvideo3", 3},
            {"video-3", -2},         {"video", -2},    {"video99999999999999999999999999", -2},
            {"video4294967297", -2}, {"vid", -2},
    };
    withIdleWatcher([&](USBEventInterrupt& watcher, WatcherSession& session) {
        EXPECT_EQ(-1, watcher.getDeviceIdNum("/dev/missing/", "video"));
        EXPECT_TRUE(session.log.contains(
                "lumacast USBEventInterrupt::getDeviceIdNum open dir:/dev/missing/ failed"));
        int n = 0;
        for (const Case& c : cases) {
            const std::string dir = "/dev/ids" + std::to_string(n++) + "/";
            ASSERT_EQ(0, mkdir(dir.c_str(), 0755));
            EXPECT_EQ(-2, watcher.getDeviceIdNum(dir.c_str(), "video")) << "empty " << dir;
            ASSERT_TRUE(writeFile(dir + c.entry, ""));
            EXPECT_EQ(c.expected, watcher.getDeviceIdNum(dir.c_str(), "video")) << c.entry;
        }
        // Only regular files and character devices count.
        ASSERT_EQ(0, mkdir("/dev/types", 0755));
        ASSERT_EQ(0, mkdir("/dev/types/video1", 0755));
        ASSERT_EQ(0, symlink("/dev/null", "/dev/types/video2"));
        ASSERT_EQ(0, mkfifo("/dev/types/video3", 0600));
        EXPECT_EQ(-2, watcher.getDeviceIdNum("/dev/types/", "video"));
        // A user namespace may make 0:0 character nodes.
        ASSERT_EQ(0, mknod("/dev/types/video4", S_IFCHR | 0600, makedev(0, 0)));
        EXPECT_EQ(4, watcher.getDeviceIdNum("/dev/types/", "video"));
        // The first matching entry in directory order wins, whatever follows it.
        ASSERT_EQ(0, mkdir("/dev/order", 0755));
        ASSERT_EQ(0, mkdir("/dev/order/video7", 0755));
        for (const char* name : {"video5", "vid8", "video9", "video1", "video3"}) {
            ASSERT_TRUE(writeFile(std::string("/dev/order/") + name, ""));
        }
        int first = -1;
        DIR* order = opendir("/dev/order");
        ASSERT_NE(nullptr, order);
        while (struct dirent* e = readdir(order)) {
            if (first < 0 && e->d_type == DT_REG && strncmp(e->d_name, "video", 5) == 0) {
                first = e->d_name[5] - '0';
            }
        }
        closedir(order);
        EXPECT_EQ(first, watcher.getDeviceIdNum("/dev/order/", "video"));
        // The longest name a directory can hold.
        ASSERT_EQ(0, mkdir("/dev/long", 0755));
        ASSERT_TRUE(writeFile("/dev/long/video" + std::string(250, '9'), ""));
        EXPECT_EQ(-2, watcher.getDeviceIdNum("/dev/long/", "video"));
    });
}

// A pass gives the kernel 200 ms to finish announcing a function before it scans.
TEST(DeviceIdTest, PassPausesBeforeItsScans) {
    withIdleWatcher([](USBEventInterrupt& watcher, WatcherSession& session) {
        // The simulator records the pauses of a thread that has used one of its devices.
        close(open("/dev/venus_gpio", O_RDWR | O_CLOEXEC));
        lumacast::devsim::VirtualTime vt;
        const auto progress = [&] {
            return std::make_pair(session.log.count(lumacast::test::kPassStart),
                                  session.log.countContaining("getDeviceIdNum devicePath"));
        };
        const auto before = progress();
        std::vector<std::pair<size_t, size_t>> atPause;
        lumacast::devsim::setPauseHook([&](uint64_t) { atPause.push_back(progress()); });
        watcher.checkConnectedDevice();
        lumacast::devsim::setPauseHook(nullptr);
        ASSERT_EQ(1u, lumacast::devsim::pauses().size());
        EXPECT_EQ(200000u, lumacast::devsim::pauses()[0].us);
        EXPECT_EQ((std::vector<std::pair<size_t, size_t>>{{before.first + 1, before.second}}),
                  atPause);
        EXPECT_EQ(before.second + 2, progress().second);
    });
}

TEST(DeviceTypeTest, ProductFileContents) {
    struct Case {
        const char* what;
        std::string text;
        int expected;
    };
    const Case cases[] = {
            {"accepted camera", lumacast::test::videoFunctionUevent(kAcceptedCamera), 2},
            {"refused camera", lumacast::test::videoFunctionUevent(kRefusedCamera), -1},
            {"empty file", "", -1},
            {"no PRODUCT line", "DEVTYPE=usb_interface\nDRIVER=uvcvideo\n", -1},
            {"PRODUCT after a long line", std::string(5000, 'x') + "\nPRODUCT=2bc5/604/1\n", 2},
            {"PRODUCT with a huge value", "PRODUCT=" + std::string(3000, 'f') + "\n", -1},
            {"PRODUCT cut by a zero byte", std::string("PRODUCT\0=2bc5/604/1\n", 20), -1},
            {"only the first PRODUCT line counts", "PRODUCT=46d/825/1\nPRODUCT=2bc5/604/1\n", -1},
            {"no line end", "PRODUCT=416/5040/1", 2},
    };
    withIdleWatcher([&](USBEventInterrupt& watcher, WatcherSession& session) {
        EXPECT_EQ(-1, watcher.checkWhatDeviceType("video4linux/video", 9));
        EXPECT_TRUE(
                session.log.contains("USBEventInterrupt::checkWhatDeviceType fopen "
                                     "devId:/sys/class/video4linux/video9/device/uevent failed"));
        EXPECT_EQ(-1, watcher.checkWhatDeviceType("video4linux/video", -2));
        EXPECT_EQ(-1, watcher.checkWhatDeviceType(std::string(400, 'a').c_str(), 1));
        int id = 0;
        for (const Case& c : cases) {
            ASSERT_TRUE(writeUevent("video4linux/video", id, c.text)) << c.what;
            EXPECT_EQ(c.expected, watcher.checkWhatDeviceType("video4linux/video", id)) << c.what;
            ++id;
        }
    });
}

// The network function's uevent file, once opened, is what a later video removal checks,
// even when its product was refused.
TEST(RemovalTest, WhichHeadersReportARemoval) {
    struct Case {
        const char* header;
        bool removes;
    };
    // Each case starts from the action "add", left by the first line.
    const Case cases[] = {
            {"remove@/devices/x/video4linux/video0", true},
            {"remove@/devices/x/video4linux/video12", true},  // one digit read: video1
            // The character's distance from '0' is the number: '>' is 14, '?' 15.
            {"remove@/devices/x/video4linux/video>", true},
            {"remove@/devices/x/video4linux/video?", false},
            {"remove@/devices/x/video4linux/video/", false},
            {"remove@/devices/x/video4linux/video", false},
            {"remove@/devices/virtual/net/usb0", false},
            {"remove@/devices/x/1-1:1.2", false},
            {"change@/devices/x/video4linux/video0", false},
            {"add@/devices/x/video4linux/video0", false},
            {"add@remove@/devices/x/video4linux/video0", true},
            {"", false},
    };
    withIdleWatcher([&](USBEventInterrupt& watcher, WatcherSession& session) {
        ASSERT_TRUE(
                writeUevent("net/usb", 1, lumacast::test::networkFunctionUevent(kRefusedCamera)));
        EXPECT_EQ(-1, watcher.checkWhatDeviceType("net/usb", 1));
        char remove[] = "remove@/devices/usb1/1-1/1-1:1.2/video4linux/video0";
        watcher.parseUevent(remove);
        EXPECT_TRUE(session.log.contains(
                "USBEventInterrupt::parseUevent /sys/class/net/usb1/device/uevent exist"));
        EXPECT_EQ(0u, session.client.count("processCameraRemove"));

        ASSERT_EQ(0, unlink("/sys/class/net/usb1/device/uevent"));
        watcher.parseUevent(remove);
        EXPECT_TRUE(session.log.contains(
                "USBEventInterrupt::parseUevent fopen /sys/class/net/usb1/device/uevent failed"));
        EXPECT_TRUE(session.log.contains("USBEventInterrupt::handleUevent video removed"));
        EXPECT_EQ(1u, session.client.count("processCameraRemove"));
        // The record is cleared: the next removal finds no file name at all.
        watcher.parseUevent(remove);
        EXPECT_TRUE(session.log.contains("USBEventInterrupt::parseUevent fopen  failed"));
        EXPECT_EQ(2u, session.client.count("processCameraRemove"));

        size_t removals = 2;
        for (const Case& c : cases) {
            char add[] = "add@/devices/x/1-1:1.2";
            watcher.parseUevent(add);
            std::string header = c.header;
            watcher.parseUevent(&header[0]);
            removals += c.removes ? 1 : 0;
            EXPECT_EQ(removals, session.client.count("processCameraRemove")) << c.header;
        }
        // An action-less header keeps the last action: after a removal, a change of video0
        // removes again.
        char removeInterface[] = "remove@/devices/x/1-1:1.2";
        watcher.parseUevent(removeInterface);
        char change[] = "change@/devices/x/video4linux/video0";
        watcher.parseUevent(change);
        EXPECT_EQ(removals + 1, session.client.count("processCameraRemove"));
        watcher.parseUevent(nullptr);
    });
}
