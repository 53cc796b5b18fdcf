// The motor service of a running lumacastd over binder, with devsim preloaded into it as the
// motor board and steered through its environment, its control socket and devsimctl.
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "tests/e2e/E2eSupport.h"

namespace lumacast::e2e {
namespace {

std::string call(FakeTv& tv, const std::vector<std::string>& args) {
    std::vector<std::string> full = {"motor"};
    full.insert(full.end(), args.begin(), args.end());
    const FakeTv::CtlResult r = tv.ctl(full);
    EXPECT_EQ(r.exitCode, 0) << args[0] << ": " << r.err;
    return r.out.empty() ? r.out : r.out.substr(0, r.out.size() - 1);
}

// Runs devsimctl against the daemon's devsim; its output, and its exit status in `status`.
std::string devsimctl(const std::string& socket, const std::string& command, int* status) {
    const std::string line = std::string(FakeTv::devsimctlPath()) + " --socket " + socket + " " +
                             command + " 2>/dev/null";
    FILE* p = popen(line.c_str(), "re");
    if (p == nullptr) return "<popen failed>";
    std::string out;
    char buf[256];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), p)) > 0) out.append(buf, n);
    const int wait = pclose(p);
    *status = WIFEXITED(wait) ? WEXITSTATUS(wait) : -1;
    return out;
}

TEST(MotorTest, CedarBoardOverBinder) {
    TvOptions options;
    options.devsimInit = "board cedar; cedar 2 rise 37; cedar 2 version V-7";
    onFakeTv(options, [](FakeTv& tv) {
        // The daemon's `ip` children inherit the preload, but must not take over its devsim.
        plugAndWait(tv);
        // The model string may carry more than the model.
        EXPECT_EQ(call(tv, {"set_client_type", "TV-MT9652-CEDAR-2023"}), "");
        EXPECT_EQ(call(tv, {"is_support_motor"}), "true");
        // A later string changes nothing: the board does not change under a running TV.
        EXPECT_EQ(call(tv, {"set_client_type", "RTD51M-FIR"}), "");
        const std::string dump = tv.ctl({"dump", "motor"}).out;
        EXPECT_NE(dump.find("  driver: selected by board type \"TV-MT9652-CEDAR-2023\"\n"),
                  std::string::npos)
                << dump;
        EXPECT_NE(dump.find("  motor supported: yes\n"), std::string::npos) << dump;
        EXPECT_EQ(call(tv, {"motor_up"}), "0");
        EXPECT_EQ(call(tv, {"motor_down"}), "0");
        // Raise, then lower, written to the MCU's command register.
        const std::string transfers = tv.devsim("transfers 2");
        const size_t up = transfers.find("i2c-2 W 0x28: 23 02 | ok");
        const size_t down = transfers.find("i2c-2 W 0x28: 23 01 | ok");
        EXPECT_NE(up, std::string::npos) << transfers;
        EXPECT_NE(down, std::string::npos) << transfers;
        EXPECT_LT(up, down);

        const std::string socket = tv.path("devsim.sock");
        int status = -1;
        EXPECT_EQ(devsimctl(socket, "cedar 2 state 3", &status), "ok\n");
        EXPECT_EQ(status, 0);
        EXPECT_EQ(call(tv, {"get_motor_status"}), "2");
        EXPECT_EQ(call(tv, {"get_rise_time"}), "37");
        EXPECT_EQ(call(tv, {"get_mcu_version"}), "V-7");
        const std::string log = test::readFile(tv.path("devsim-transfers.log"));
        EXPECT_NE(log.find("i2c-2 W 0x28: 21 | R 0x28: 03 | ok"), std::string::npos) << log;

        // A bus that has gone: failure codes in the results, and the daemon carries on.
        ASSERT_EQ(tv.devsim("bus 2 missing"), "ok");
        EXPECT_EQ(call(tv, {"motor_up"}), "4096");
        EXPECT_EQ(call(tv, {"get_mcu_version"}), "");
        ASSERT_EQ(tv.devsim("bus 2 present"), "ok");
        ASSERT_EQ(tv.devsim("refuse bus=2 count=1"), "ok");
        EXPECT_EQ(call(tv, {"get_rise_time"}), "10000");
        EXPECT_EQ(call(tv, {"get_rise_time"}), "37");
        const std::string stats = devsimctl(socket, "status", &status);
        EXPECT_NE(stats.find("open descriptors: 0"), std::string::npos) << stats;
        EXPECT_NE(stats.find("\n  bus 2 present: refused 2 opens and transfers"), std::string::npos)
                << stats;
        EXPECT_NE(stats.find("\n  refuse bus=2 kind=any errno=121: fired 1, 0 left"),
                  std::string::npos)
                << stats;

        // Bad commands are refused with a reason and change nothing.
        EXPECT_EQ(devsimctl(socket, "cedar 2 state 300", &status).find("error: bad number '300'"),
                  0u);
        EXPECT_EQ(status, 1);
        EXPECT_EQ(devsimctl(socket, "frobnicate", &status),
                  "error: unknown command 'frobnicate'\n");
        EXPECT_EQ(status, 1);
        devsimctl(socket + ".nope", "clock", &status);
        EXPECT_EQ(status, 2);
        EXPECT_EQ(call(tv, {"get_motor_status"}), "2");

        const std::string image = tv.path("mcu.bin");
        std::ofstream(image) << std::string(600, 'x');
        // The protocol's pauses (5 s before the MCU is asked, 500 ms per package) on
        // devsim's clock.
        ASSERT_EQ(tv.devsim("time virtual"), "ok");
        EXPECT_EQ(call(tv, {"mcu_upgrade", image}), "0");
        const std::string upgraded = tv.devsim("stats");
        EXPECT_NE(upgraded.find("cedar on i2c-2: state 3, commands 2, packages 3, finished"),
                  std::string::npos)
                << upgraded;
        EXPECT_NE(upgraded.find("clock us: 6505000"), std::string::npos) << upgraded;
        // Without an image the transfer stops at the first package.
        EXPECT_EQ(call(tv, {"mcu_upgrade", tv.path("missing.bin")}), "4096");
        EXPECT_TRUE(tv.waitForLog("send_package fail", kDataMs));
        ASSERT_EQ(tv.devsim("time real"), "ok");
        EXPECT_EQ(call(tv, {"get_mcu_version"}), "V-7");

        // The persisted flag lives in the property store that every process shares; only a
        // leading '1' reads as set.
        EXPECT_EQ(call(tv, {"get_status"}), "false");
        EXPECT_EQ(call(tv, {"set_status", "true"}), "");
        EXPECT_EQ(tv.property("persist.sys.kora.camera.status"), "1");
        EXPECT_EQ(tv.ctl({"setprop", "persist.sys.kora.camera.status", "1abc"}).exitCode, 0);
        EXPECT_EQ(call(tv, {"get_status"}), "true");
        EXPECT_NE(tv.ctl({"dump", "motor"}).out.find("  persist.sys.kora.camera.status: 1abc\n"),
                  std::string::npos);
        EXPECT_EQ(call(tv, {"set_status", "0"}), "");
        EXPECT_EQ(tv.ctl({"getprop", "persist.sys.kora.camera.status"}).out, "0\n");
        EXPECT_EQ(call(tv, {"get_status"}), "false");
        EXPECT_EQ(tv.ctl({"setprop", "persist.sys.kora.camera.status", "true"}).exitCode, 0);
        EXPECT_EQ(call(tv, {"get_status"}), "false");
    });
}

}  // namespace
}  // namespace lumacast::e2e
