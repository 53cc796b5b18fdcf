#include <gtest/gtest.h>
#include <lumacast/host/LogCapture.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "motor/IMotor.h"
#include "motor/MotorBirch.h"
#include "motor/MotorCedar.h"
#include "motor/MotorDamson.h"
#include "motor/lowlevel/MotorResult.h"
#include "tests/unit/motor/MotorTestEnv.h"

using namespace android::lumacast;
using lumacast::host::LogCapture;
namespace devsim = lumacast::devsim;

namespace lumacast::test {
namespace {

using ModelTest = MotorTest;

const char* modelOf(IMotor* motor) {
    if (motor == nullptr) return "none";
    if (dynamic_cast<MotorDamson*>(motor) != nullptr) return "damson";
    if (dynamic_cast<MotorCedar*>(motor) != nullptr) return "cedar";
    return dynamic_cast<MotorBirch*>(motor) != nullptr ? "birch" : "?";
}

TEST_F(ModelTest, BoardStringSelectsTheModel) {
    const std::pair<const char*, const char*> cases[] = {
            {"MT9652-BIRCH", "birch"},
            {"tv_MT9652-ELM_2023", "birch"},
            {"xx-MT9652-CEDAR-yy", "cedar"},
            {"MT9652-CEDAR MT9652-ELM", "birch"},
            {"RTD51M-FIR MT9652-CEDAR", "cedar"},
            {"RTD51M-FIR MT9652-BIRCH", "birch"},
            {"RTD51M-FIR", "damson"},
            {"mt9652-cedar", "none"},
            {"MT9652", "none"},
            {"", "none"},
    };
    for (const auto& [type, model] : cases) {
        IMotor* motor = IMotor::getInstance(type);
        EXPECT_STREQ(model, modelOf(motor)) << type;
        IMotor::releaseInstance(motor);
    }

    // Once a model is chosen it stays, whatever a later string names, and nothing is logged.
    IMotor* first = IMotor::getInstance("MT9652-CEDAR");
    ASSERT_NE(nullptr, first);
    EXPECT_TRUE(IMotor::is_support_motor());
    LogCapture log;
    EXPECT_EQ(first, IMotor::getInstance("RTD51M-FIR"));
    EXPECT_EQ(first, IMotor::getInstance(""));
    EXPECT_EQ(0u, log.entries().size());
    IMotor::releaseInstance(first);
    EXPECT_STREQ("damson", modelOf(IMotor::getInstance("RTD51M-FIR")));
    IMotor::releaseInstance(IMotor::getInstance(""));
}

// Birch reads and drives its lines straight through the GPIO layer.
TEST_F(ModelTest, BirchSwitchAndRiseStatusFromInputLines) {
    MotorBirch birch;
    struct {
        const char* level;
        int status;
    } switchCases[] = {{"1", 1}, {"0", 0}, {"2", 2}, {"x", 2}};
    for (const auto& c : switchCases) {
        setGpio(152, c.level);
        EXPECT_EQ(c.status, birch.get_switch_status()) << c.level;
    }
    removeGpio(152);
    EXPECT_EQ(2, birch.get_switch_status());

    struct {
        const char* first;
        const char* second;
        int status;
    } riseCases[] = {{"0", "0", 0}, {"0", "1", 0}, {"1", "0", 3}, {"1", "1", 4}, {"x", "0", 3}};
    for (const auto& c : riseCases) {
        setGpio(151, c.first);
        setGpio(150, c.second);
        EXPECT_EQ(c.status, birch.get_motor_status()) << c.first << c.second;
    }
    removeGpio(150);
    setGpio(151, "0");
    EXPECT_EQ(4, birch.get_motor_status());

    // Without gpio151 the second line is not even read.
    setGpio(150, "0");
    removeGpio(151);
    LogCapture log;
    EXPECT_EQ(4, birch.get_motor_status());
    EXPECT_EQ(0u, log.countContaining("gpio150"));
    devsim::setBoard(devsim::Board::None);
    EXPECT_EQ(0, birch.get_rotate_time());
}

TEST_F(ModelTest, BirchPulsesHoldOneLineLowForTheWholePause) {
    MotorBirch birch;
    devsim::VirtualTime vt;
    LogCapture log;
    // Each write by its line, and each pause with the levels of 146 and 147 during it.
    std::string steps;
    const std::string written = "fun = set_gpio_value, path = /sys/class/gpio/gpio";
    size_t seen = 0;
    const auto collect = [&] {
        const auto entries = log.entries();
        for (; seen < entries.size(); ++seen) {
            if (entries[seen].text.rfind(written, 0) == 0) {
                steps += "w" + entries[seen].text.substr(written.size(), 3) + " ";
            }
        }
    };
    devsim::setPauseHook([&](uint64_t us) {
        collect();
        steps += "p" + std::to_string(us) + ":" + gpio(146) + gpio(147) + " ";
    });

    EXPECT_EQ(MOTOR_OK, birch.motor_up());
    EXPECT_EQ(MOTOR_OK, birch.motor_down());
    collect();
    EXPECT_EQ("w146 w147 p200000:01 w146 w146 w147 p200000:10 w147 ", steps);
    EXPECT_EQ("1", gpio(146));
    EXPECT_EQ("1", gpio(147));

    // A line that cannot be written does not cut the pulse short.
    removeGpio(147);
    setGpio(146, "0");
    EXPECT_EQ(MOTOR_OK, birch.motor_down());
    EXPECT_EQ("1", gpio(146));
    EXPECT_EQ(3u, devsim::pauses().size());
    devsim::setPauseHook(nullptr);
}

TEST_F(ModelTest, BirchVersionIsValidatedAndFormatted) {
    MotorBirch birch;
    EXPECT_STREQ("MOT-QN42R07-ZT3W105", birch.get_mcu_version());
    devsim::withBirch([](devsim::BirchMcu& m) { m.version = 7; });
    EXPECT_STREQ("MOT-QN42R07-ZT3W007", birch.get_mcu_version());

    EXPECT_EQ("r10/9 r10/9 ", timeline());

    LogCapture log;
    devsim::withBirch([](devsim::BirchMcu& m) { m.versionMarker = 0x54; });
    EXPECT_STREQ("", birch.get_mcu_version());
    EXPECT_TRUE(log.contains("fun = get_mcu_version, data[0] = 0x54", ANDROID_LOG_ERROR));

    devsim::withBirch([](devsim::BirchMcu& m) {
        m.versionMarker = 0x55;
        m.versionBadCrc = true;
    });
    EXPECT_STREQ("", birch.get_mcu_version());
    EXPECT_EQ(1u, log.countContaining("fun = get_mcu_version, crc error, ori_crc = "));

    // More than three digits would not be text at all.
    devsim::withBirch([](devsim::BirchMcu& m) {
        m.versionBadCrc = false;
        m.version = 1000;
    });
    EXPECT_STREQ("", birch.get_mcu_version());

    devsim::setBusPresent(2, false);
    EXPECT_STREQ("", birch.get_mcu_version());
    EXPECT_TRUE(log.contains("fun = get_mcu_version, iic_read fail", ANDROID_LOG_ERROR));
}

// Version texts are filled per thread: callers on different binder threads never see a
// buffer another call is filling (ThreadSanitizer checks the rest).
TEST_F(ModelTest, ConcurrentVersionReadsNeverShareABuffer) {
    devsim::withCedar(2, [](devsim::CedarMcu& m) { m.version = "CEDAR-2"; });
    devsim::withCedar(1, [](devsim::CedarMcu& m) { m.version = "DAMSON-1"; });
    MotorCedar cedar;
    MotorDamson damson;
    MotorBirch birch;
    std::atomic<int> wrong{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    // All threads exist before any reads, so they overlap as much as possible.
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            while (!go) std::this_thread::yield();
            for (int i = 0; i < 200; ++i) {
                const char* expected = t % 3 == 0   ? "CEDAR-2"
                                       : t % 3 == 1 ? "DAMSON-1"
                                                    : "MOT-QN42R07-ZT3W105";
                IMotor& motor = t % 3 == 0   ? static_cast<IMotor&>(cedar)
                                : t % 3 == 1 ? static_cast<IMotor&>(damson)
                                             : static_cast<IMotor&>(birch);
                const std::string text = motor.get_mcu_version();
                if (text != expected) ++wrong;
            }
        });
    }
    go = true;
    for (auto& th : threads) th.join();
    EXPECT_EQ(0, wrong.load());
}

}  // namespace
}  // namespace lumacast::test
