// The motor service of a running lumacastd over binder, with devsim as the motor board:
// model selection, motor commands and readings, a firmware upgrade and the persisted flag.
#include <fcntl.h>
#include <unistd.h>

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

TEST(MotorTest, CedarBoardOverBinder) {
    onFakeTv([](FakeTv& tv) {
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

        ASSERT_EQ(tv.devsim("cedar 2 state 3"), "ok");
        EXPECT_EQ(call(tv, {"get_motor_status"}), "2");
        ASSERT_EQ(tv.devsim("cedar 2 state 9"), "ok");
        EXPECT_EQ(call(tv, {"get_motor_status"}), "4");
        ASSERT_EQ(tv.devsim("cedar 2 rise 37"), "ok");
        EXPECT_EQ(call(tv, {"get_rise_time"}), "37");
        EXPECT_EQ(call(tv, {"get_mcu_version"}), "KORA-MCU-V1.0.7");

        // A bus that has gone: failure codes in the results, and the daemon carries on.
        ASSERT_EQ(tv.devsim("bus 2 missing"), "ok");
        EXPECT_EQ(call(tv, {"motor_up"}), "4096");
        EXPECT_EQ(call(tv, {"get_rise_time"}), "10000");
        EXPECT_EQ(call(tv, {"get_mcu_version"}), "");
        ASSERT_EQ(tv.devsim("bus 2 present"), "ok");
        EXPECT_EQ(call(tv, {"get_rise_time"}), "37");
        const std::string stats = tv.devsim("stats");
        EXPECT_NE(stats.find("open descriptors: 0"), std::string::npos) << stats;
    });
}

TEST(MotorTest, FirmwareUpgradeOverBinder) {
    onFakeTv([](FakeTv& tv) {
        const std::string image = tv.path("mcu.bin");
        {
            std::string bytes(600, '\0');
            for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 13 + 5);
            const int fd = open(image.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
            ASSERT_GE(fd, 0);
            ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
            close(fd);
        }
        EXPECT_EQ(call(tv, {"set_client_type", "MT9652-CEDAR"}), "");
        // The protocol's pauses (5 s before the MCU is asked, 500 ms per package) on
        // devsim's clock.
        ASSERT_EQ(tv.devsim("time virtual"), "ok");
        EXPECT_EQ(call(tv, {"mcu_upgrade", image}), "0");
        const std::string stats = tv.devsim("stats");
        EXPECT_NE(stats.find("cedar on i2c-2: state 0, commands 0, packages 3, finished"),
                  std::string::npos)
                << stats;
        // Without an image the transfer stops at the first package.
        EXPECT_EQ(call(tv, {"mcu_upgrade", tv.path("missing.bin")}), "4096");
        EXPECT_TRUE(tv.waitForLog("send_package fail", kDataMs));
        ASSERT_EQ(tv.devsim("time real"), "ok");
        EXPECT_EQ(call(tv, {"get_mcu_version"}), "KORA-MCU-V1.0.7");
    });
}

TEST(MotorTest, PersistedStatusFlagLivesInThePropertyStore) {
    onFakeTv([](FakeTv& tv) {
        EXPECT_EQ(call(tv, {"get_status"}), "false");
        EXPECT_EQ(call(tv, {"set_status", "true"}), "");
        EXPECT_EQ(tv.property("persist.sys.kora.camera.status"), "1");
        EXPECT_EQ(call(tv, {"get_status"}), "true");
        EXPECT_EQ(tv.ctl({"setprop", "persist.sys.kora.camera.status", "0"}).exitCode, 0);
        EXPECT_EQ(call(tv, {"get_status"}), "false");
        EXPECT_EQ(tv.ctl({"setprop", "persist.sys.kora.camera.status", "1abc"}).exitCode, 0);
        EXPECT_EQ(call(tv, {"get_status"}), "true");
        EXPECT_NE(tv.ctl({"dump", "motor"}).out.find("  persist.sys.kora.camera.status: 1abc\n"),
                  std::string::npos);
        EXPECT_EQ(call(tv, {"set_status", "0"}), "");
        EXPECT_EQ(tv.ctl({"getprop", "persist.sys.kora.camera.status"}).out, "0\n");
    });
}

}  // namespace
}  // namespace lumacast::e2e
