#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "tests/support/Namespace.h"
#include "tests/support/TestEnv.h"

using lumacast::test::commandOutput;
using lumacast::test::runCommand;
using lumacast::test::testTempDir;

namespace {

size_t occurrences(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t pos = text.find(part); pos != std::string::npos; pos = text.find(part, pos + 1)) {
        ++n;
    }
    return n;
}

// Runs `body` with bash inside `scripts/fakedevice run`; returns everything it printed.
std::string runInFakeDevice(const std::string& name, const std::string& body,
                            const std::string& runOptions = "") {
    const std::string file = testTempDir() + "/" + name + ".sh";
    std::ofstream(file) << "set -e\nUSBWATCH=" << LUMACAST_USBWATCH << "\nOUT=" << testTempDir()
                        << "/" << name << ".out\n"
                        << R"(waitfor() {
    for _ in $(seq 200); do grep -q "$1" "$OUT" && return 0; sleep 0.05; done
    echo "timed out waiting for $1"; cat "$OUT"; return 1
}
)" << body;
    return commandOutput(std::string(LUMACAST_FAKEDEVICE) + " run " + runOptions + " -- bash " +
                         file + " 2>&1; echo \"exit=$?\"");
}

}  // namespace

TEST(FakeDeviceScriptTest, PlugAndUnplugReachTheWatcher) {
    const std::string out = runInFakeDevice("plug", R"(
"$USBWATCH" > "$OUT" &
watcher=$!
waitfor ready
"$FAKEDEVICE" plug accepted
waitfor processCameraAdd
"$FAKEDEVICE" camera ip -4 -o addr show
"$FAKEDEVICE" unplug
waitfor processCameraRemove
kill $watcher; wait $watcher || true
cat "$OUT"
)");
    EXPECT_NE(std::string::npos, out.find("exit=0")) << out;
    EXPECT_NE(std::string::npos, out.find("cam0    inet 192.168.111.10/24")) << out;
    EXPECT_EQ(1u, occurrences(out, "processCameraAdd keepAlive=1\n")) << out;
    EXPECT_EQ(1u, occurrences(out, "processCameraRemove\n")) << out;
    EXPECT_LT(out.find("processCameraAdd"), out.find("processCameraRemove")) << out;
    EXPECT_NE(std::string::npos, out.find("stopped")) << out;

    // Nothing of it is left in the namespace the script was started from.
    EXPECT_NE(0, runCommand("ip link show usb0 >/dev/null 2>&1"));
    EXPECT_NE(0, access("/dev/video0", F_OK));
    EXPECT_NE(0, access("/sys/class/net/usb0/device/uevent", F_OK));
}

TEST(FakeDeviceScriptTest, CameraPluggedBeforeTheCommandAndFailuresPassThrough) {
    const std::string out = runInFakeDevice("before", R"(
"$USBWATCH" > "$OUT" &
watcher=$!
waitfor processCameraAdd
kill $watcher; wait $watcher || true
cat "$OUT"
"$FAKEDEVICE" status
exit 3
)",
                                            "--camera noheartbeat");
    EXPECT_NE(std::string::npos, out.find("processCameraAdd keepAlive=0")) << out;
    EXPECT_NE(std::string::npos, out.find("/sys/class/video4linux/video0/device/uevent")) << out;
    // status lists the video nodes that are character devices.
    EXPECT_NE(std::string::npos, out.find("/dev/video0\n")) << out;
    EXPECT_NE(std::string::npos, out.find("exit=3")) << out;

    const std::string outside = commandOutput(std::string(LUMACAST_FAKEDEVICE) + " plug 2>&1");
    EXPECT_NE(std::string::npos, outside.find("works only inside")) << outside;
}
