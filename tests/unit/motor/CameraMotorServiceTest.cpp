// CameraMotorService against devsim and fake GPIO files; the stub's parcels are pinned by the
// dispatch tests with a fake service.
#include <gtest/gtest.h>
#include <lumacast/host/LogCapture.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "service/CameraMotorService.h"
#include "tests/unit/motor/MotorTestEnv.h"

using android::OK;
using android::sp;
using android::lumacast::CameraMotorService;
using lumacast::host::LogCapture;
namespace devsim = lumacast::devsim;

namespace lumacast::test {
namespace {

using S = CameraMotorService;
using Bytes = std::vector<uint8_t>;

class CameraMotorServiceTest : public MotorTest {
  protected:
    void SetUp() override {
        MotorTest::SetUp();
        mService = new CameraMotorService();
    }
    void TearDown() override {
        mService.clear();  // releases the driver
        MotorTest::TearDown();
    }
    // The out-parameter of a call, which must report an ok status.
    template <typename T, typename Method, typename... Args>
    T get(Method method, const Args&... args) {
        T value{};
        EXPECT_TRUE(((*mService).*method)(args..., &value).isOk());
        return value;
    }
    void setClientType(const std::string& type) {
        EXPECT_TRUE(mService->set_client_type(type).isOk());
    }
    std::string dump(const char* arg = nullptr) {
        FILE* f = tmpfile();
        android::Vector<android::String16> args;
        if (arg != nullptr) args.push_back(android::String16(arg));
        EXPECT_EQ(OK, mService->dump(fileno(f), args));
        std::string text(4096, '\0');
        rewind(f);
        text.resize(fread(&text[0], 1, text.size(), f));
        fclose(f);
        return text;
    }

    sp<CameraMotorService> mService;
};

// The other defaults before any string are the daemon test's.
TEST_F(CameraMotorServiceTest, DefaultsUntilABoardStringNamesAModel) {
    LogCapture log;
    for (const char* type : {"", "UNKNOWN-BOARD", "mt9652-cedar"}) {
        setClientType(type);
        EXPECT_EQ(0, get<int32_t>(&S::motor_down));
        EXPECT_FALSE(get<bool>(&S::is_support_motor));
        EXPECT_EQ("", get<std::string>(&S::get_mcu_version));
        EXPECT_EQ(0, get<int32_t>(&S::mcu_upgrade, std::string("/no/such/image")));
    }
    EXPECT_TRUE(devsim::transfers().empty());
    EXPECT_EQ(3u, log.count("CameraMotorService::get_mcu_version motorInstance is null",
                            ANDROID_LOG_DEBUG));
}

TEST_F(CameraMotorServiceTest, CedarBoard) {
    // Raising and lowering are the daemon test's.
    setClientType("TV-MT9652-CEDAR-55");
    const int expected[] = {0, 1, 0, 2, 3};
    for (int byte = 0; byte < 256; ++byte) {
        devsim::withCedar(2, [&](devsim::CedarMcu& m) { m.state = static_cast<uint8_t>(byte); });
        ASSERT_EQ(byte < 5 ? expected[byte] : 4, get<int32_t>(&S::get_motor_status)) << byte;
    }
    devsim::withCedar(2, [](devsim::CedarMcu& m) { m.riseTime = 0; });
    EXPECT_EQ(0, get<int32_t>(&S::get_rise_time));
    devsim::withCedar(2, [](devsim::CedarMcu& m) {
        m.riseTime = 213;
        m.version = "KORA-CEDAR-MCU-V12";
    });
    EXPECT_EQ(213, get<int32_t>(&S::get_rise_time));
    EXPECT_EQ("KORA-CEDAR-MCU-V12", get<std::string>(&S::get_mcu_version));
    EXPECT_EQ(times(256, "r21/1 ") + "r22/1 r22/1 r16/18 ", timeline());
    // Only a reading of exactly 1 is "on".
    for (const char* level : {"1", "0", "2"}) {
        setGpio(152, level);
        EXPECT_EQ(level[0] == '1', get<bool>(&S::get_switch_status)) << level;
    }
    // Bytes from the MCU that are not UTF-8 must not reach a reply.
    devsim::withCedar(2, [](devsim::CedarMcu& m) { m.version = "V1\xff\xfe"; });
    LogCapture log;
    EXPECT_EQ("", get<std::string>(&S::get_mcu_version));
    EXPECT_TRUE(log.contains("CameraMotorService::get_mcu_version version is not text",
                             ANDROID_LOG_ERROR));

    std::vector<uint8_t> image;
    const std::string path = writeImage(600, &image);
    devsim::VirtualTime vt;
    // The dump taken while package 2 waits for its answer shows where the upgrade is.
    std::vector<std::string> during;
    devsim::setPauseHook([&](uint64_t) { during.push_back(dump()); });
    EXPECT_EQ(0, get<int32_t>(&S::mcu_upgrade, path));
    devsim::setPauseHook(nullptr);
    devsim::withCedar(2, [&](devsim::CedarMcu& m) { EXPECT_EQ(image, m.image()); });
    EXPECT_EQ(1, std::count_if(during.begin(), during.end(), [](const std::string& d) {
                  return d.find("  firmware upgrade: running, package 2 of 3\n") !=
                         std::string::npos;
              }));
    EXPECT_NE(dump().find("  firmware upgrade: last ended with 0 at package 3 of 3 ("),
              std::string::npos)
            << dump();
    EXPECT_EQ(4096, get<int32_t>(&S::mcu_upgrade, path + ".missing"));
    EXPECT_NE(dump().find("  firmware upgrade: last ended with 4096 at package 0 of 16777216 ("),
              std::string::npos)
            << dump();
    EXPECT_EQ(0u, dump("--help").find("cameramotorservice dump shows:\n  driver: "));

    // Failures come back as the access layer's codes (a refused rise time and version are
    // the daemon test's).
    devsim::addFault({});
    EXPECT_EQ(-1, get<int32_t>(&S::motor_up));
    EXPECT_EQ(-1, get<int32_t>(&S::get_motor_status));
    devsim::setBusPresent(2, false);
    EXPECT_EQ(4096, get<int32_t>(&S::motor_down));
    EXPECT_EQ(4096, get<int32_t>(&S::get_motor_status));
    EXPECT_EQ(10000, get<int32_t>(&S::get_rise_time));
}

// The first model chosen stays for the life of the service: a later string neither switches
// nor releases the driver. A new service selects again.
TEST_F(CameraMotorServiceTest, OneDriverPerService) {
    setClientType("MT9652-ELM");
    setClientType("MT9652-CEDAR");
    setClientType("");
    EXPECT_EQ("MOT-QN42R07-ZT3W105", get<std::string>(&S::get_mcu_version));

    // A new service selects again: Damson, a Cedar on bus 1 with its switch on a vendor pin.
    mService.clear();
    mService = new CameraMotorService();
    LogCapture log;
    setClientType("RTD51M-FIR");
    const int cedar = log.indexOf("func=MotorCedar");
    EXPECT_GE(cedar, 0);
    EXPECT_EQ(cedar + 1, log.indexOf("func=MotorDamson"));
    devsim::withCedar(1, [](devsim::CedarMcu& m) { m.state = 3; });
    EXPECT_EQ(2, get<int32_t>(&S::get_motor_status));
    EXPECT_EQ(0, get<int32_t>(&S::motor_down));
    EXPECT_EQ((std::vector<Bytes>{{1}}), devsim::writesTo(1, 0x28, 0x23));
    EXPECT_TRUE(devsim::writesTo(2, 0x28, 0x23).empty());
    std::vector<uint8_t> image;
    const std::string path = writeImage(700, &image);
    {
        devsim::VirtualTime vt;
        EXPECT_EQ(0, get<int32_t>(&S::mcu_upgrade, path));
    }
    devsim::withCedar(1, [&](devsim::CedarMcu& m) { EXPECT_EQ(image, m.image()); });
    EXPECT_TRUE(devsim::writesTo(2, 0x28, 0xE4).empty());

    // gpio152 reads "0" throughout: only the pin counts.
    devsim::setPin("PIN_CAM_DET_SOC", 1);
    EXPECT_TRUE(get<bool>(&S::get_switch_status));
    // Through the control command, as devsimctl and the scenarios set it.
    EXPECT_EQ("ok", devsim::command("pin PIN_CAM_DET_SOC 0"));
    EXPECT_FALSE(get<bool>(&S::get_switch_status));
    devsim::setPin("PIN_CAM_DET_SOC", 1);
    devsim::setVenusRefuses(true);
    EXPECT_FALSE(get<bool>(&S::get_switch_status));
    devsim::setVenusPresent(false);
    EXPECT_FALSE(get<bool>(&S::get_switch_status));
    EXPECT_EQ(2u, log.count("func=get_switch_status, ret = 4096, value = 0", ANDROID_LOG_INFO));
    EXPECT_EQ(1u, log.count("func=get_switch_status, ret = 0, value = 1", ANDROID_LOG_INFO));
    EXPECT_EQ(1u,
              log.count("func = _GPIOExecuteCommand, ioctl fail!! errno = 5, Input/output error\n",
                        ANDROID_LOG_ERROR));
    EXPECT_EQ(1u, log.count("func = _open_GPIO_Device, gpio fd open fail!! errno = 2, No such file "
                            "or directory\n",
                            ANDROID_LOG_ERROR));
}

// Binder threads that race the first set_client_type see either the defaults or the one
// driver that won; afterwards everything goes to that driver.
TEST_F(CameraMotorServiceTest, CallsRacingTheSelectionSeeOneDriver) {
    devsim::withCedar(2, [](devsim::CedarMcu& m) { m.state = 3; });
    devsim::withCedar(1, [](devsim::CedarMcu& m) { m.state = 4; });
    std::atomic<bool> go{false};
    std::atomic<int> unexpected{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            while (!go) std::this_thread::yield();
            for (int i = 0; i < 100; ++i) {
                if (t < 2) {
                    setClientType(t == 0 ? "MT9652-CEDAR" : "RTD51M-FIR");
                } else {
                    const int status = get<int32_t>(&S::get_motor_status);
                    // 4: no driver yet; 2: Cedar's MCU; 3: Damson's.
                    if (status != 4 && status != 2 && status != 3) ++unexpected;
                    get<bool>(&S::is_support_motor);
                }
            }
        });
    }
    go = true;
    for (auto& th : threads) th.join();
    EXPECT_EQ(0, unexpected.load());

    devsim::clearTransfers();
    std::set<int> answers;
    for (int i = 0; i < 5; ++i) answers.insert(get<int32_t>(&S::get_motor_status));
    ASSERT_EQ(1u, answers.size());
    const int bus = *answers.begin() == 2 ? 2 : 1;
    EXPECT_EQ(5u, devsim::transfers().size());
    for (const auto& t : devsim::transfers()) EXPECT_EQ(bus, t.bus);
}

}  // namespace
}  // namespace lumacast::test
