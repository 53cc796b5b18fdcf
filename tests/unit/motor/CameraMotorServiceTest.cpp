// CameraMotorService through its binder stub, against devsim and fake GPIO files.
#include <binder/Parcel.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <lumacast/host/LogCapture.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "service/CameraMotorService.h"
#include "tests/unit/motor/MotorTestEnv.h"

using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::lumacast::CameraMotorService;
using lumacast::host::LogCapture;
namespace devsim = lumacast::devsim;

namespace lumacast::test {
namespace {

enum Code : uint32_t {
    kSetClientType = 1,
    kMotorDown,
    kMotorUp,
    kGetMotorStatus,
    kGetRiseTime,
    kGetSwitchStatus,
    kIsSupportMotor,
    kSetStatus,
    kGetStatus,
    kGetMcuVersion,
    kMcuUpgrade,
};

const char* const kStatusProperty = "persist.sys.kora.camera.status";

// A client that speaks the parcels of the interface to the service object.
class Client {
  public:
    explicit Client(const sp<IBinder>& service) : mService(service) {}

    // Sends a request; checks that the reply begins with an ok status and leaves `reply`
    // positioned after it.
    void call(uint32_t code, const std::function<void(Parcel&)>& args, Parcel* reply) {
        Parcel data;
        data.writeInterfaceToken(android::String16("kora.lumacast.IKCameraMotor"));
        if (args) args(data);
        EXPECT_EQ(OK, mService->transact(code, data, reply)) << code;
        reply->setDataPosition(0);
        int32_t exception = -1;
        EXPECT_EQ(OK, reply->readInt32(&exception));
        EXPECT_EQ(0, exception) << code;
    }
    int32_t integer(uint32_t code, const std::string& path = "") {
        Parcel reply;
        if (path.empty()) {
            call(code, nullptr, &reply);
        } else {
            call(
                    code, [&](Parcel& p) { p.writeUtf8AsUtf16(path); }, &reply);
        }
        int32_t v = -12345;
        EXPECT_EQ(OK, reply.readInt32(&v));
        return v;
    }
    bool boolean(uint32_t code) {
        Parcel reply;
        call(code, nullptr, &reply);
        bool v = false;
        EXPECT_EQ(OK, reply.readBool(&v));
        return v;
    }
    std::string text(uint32_t code) {
        Parcel reply;
        call(code, nullptr, &reply);
        std::string v = "<unset>";
        EXPECT_EQ(OK, reply.readUtf8FromUtf16(&v));
        return v;
    }
    void setClientType(const std::string& type) {
        Parcel reply;
        call(
                kSetClientType, [&](Parcel& p) { p.writeUtf8AsUtf16(type); }, &reply);
        EXPECT_EQ(4u, reply.dataSize());
    }
    void setStatus(bool status) {
        Parcel reply;
        call(
                kSetStatus, [&](Parcel& p) { p.writeBool(status); }, &reply);
    }

  private:
    sp<IBinder> mService;
};

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
    std::string property() {
        char value[PROPERTY_VALUE_MAX] = {};
        property_get(kStatusProperty, value, "<unset>");
        return value;
    }

    sp<CameraMotorService> mService;
};

TEST_F(CameraMotorServiceTest, DefaultsUntilABoardStringNamesAModel) {
    Client c(mService);
    LogCapture log;
    for (const char* type : {"", "UNKNOWN-BOARD", "mt9652-cedar"}) {
        c.setClientType(type);
        EXPECT_EQ(0, c.integer(kMotorUp));
        EXPECT_EQ(0, c.integer(kMotorDown));
        EXPECT_EQ(4, c.integer(kGetMotorStatus));
        EXPECT_EQ(4, c.integer(kGetRiseTime));
        EXPECT_TRUE(c.boolean(kGetSwitchStatus));
        EXPECT_FALSE(c.boolean(kIsSupportMotor));
        EXPECT_EQ("", c.text(kGetMcuVersion));
        EXPECT_EQ(0, c.integer(kMcuUpgrade, "/no/such/image"));
    }
    EXPECT_TRUE(devsim::transfers().empty());
    EXPECT_EQ(3u, log.count("CameraMotorService::get_mcu_version motorInstance is null",
                            ANDROID_LOG_DEBUG));
}

TEST_F(CameraMotorServiceTest, CedarBoardOverBinder) {
    Client c(mService);
    c.setClientType("TV-MT9652-CEDAR-55");
    devsim::withCedar(2, [](devsim::CedarMcu& m) {
        m.state = 4;
        m.riseTime = 37;
        m.version = "CEDAR-1.2";
    });
    EXPECT_TRUE(c.boolean(kIsSupportMotor));
    EXPECT_EQ(0, c.integer(kMotorUp));
    EXPECT_EQ(0, c.integer(kMotorDown));
    EXPECT_EQ((std::vector<std::vector<uint8_t>>{{2}, {1}}), devsim::writesTo(2, 0x28, 0x23));
    EXPECT_EQ(3, c.integer(kGetMotorStatus));
    EXPECT_EQ(37, c.integer(kGetRiseTime));
    EXPECT_EQ("CEDAR-1.2", c.text(kGetMcuVersion));
    // Only a reading of exactly 1 is "on".
    for (const char* level : {"1", "0", "2"}) {
        setGpio(152, level);
        EXPECT_EQ(level[0] == '1', c.boolean(kGetSwitchStatus)) << level;
    }

    std::vector<uint8_t> image;
    const std::string path = writeImage(600, &image);
    devsim::VirtualTime vt;
    // The dump taken while package 2 waits for its answer shows where the upgrade is.
    std::vector<std::string> during;
    devsim::setPauseHook([&](uint64_t) { during.push_back(dump()); });
    EXPECT_EQ(0, c.integer(kMcuUpgrade, path));
    devsim::setPauseHook(nullptr);
    devsim::withCedar(2, [&](devsim::CedarMcu& m) { EXPECT_EQ(image, m.image()); });
    EXPECT_EQ(1, std::count_if(during.begin(), during.end(), [](const std::string& d) {
                  return d.find("  firmware upgrade: running, package 2 of 3\n") !=
                         std::string::npos;
              }));
    EXPECT_NE(dump().find("  firmware upgrade: last ended with 0 at package 3 of 3 ("),
              std::string::npos)
            << dump();
    EXPECT_EQ(4096, c.integer(kMcuUpgrade, path + ".missing"));
    EXPECT_NE(dump().find("  firmware upgrade: last ended with 4096 at package 0 of 16777216 ("),
              std::string::npos)
            << dump();
    EXPECT_EQ(0u, dump("--help").find("cameramotorservice dump shows:\n  driver: "));
}

// Each service releases its driver, so a new one selects again.
TEST_F(CameraMotorServiceTest, ServiceReleasesItsDriver) {
    Client(mService).setClientType("MT9652-ELM");
    EXPECT_EQ("MOT-QN42R07-ZT3W105", Client(mService).text(kGetMcuVersion));
    mService.clear();
    mService = new CameraMotorService();
    Client c(mService);
    c.setClientType("RTD51M-FIR");
    devsim::setPin("PIN_CAM_DET_SOC", 1);
    EXPECT_TRUE(c.boolean(kGetSwitchStatus));
    EXPECT_EQ(0, c.integer(kMotorDown));
    EXPECT_EQ((std::vector<std::vector<uint8_t>>{{1}}), devsim::writesTo(1, 0x28, 0x23));
}

// The first model chosen stays for the life of the service: a later string neither
// switches nor releases the driver.
TEST_F(CameraMotorServiceTest, LaterBoardStringsKeepTheFirstDriver) {
    Client c(mService);
    c.setClientType("MT9652-CEDAR");
    c.setClientType("RTD51M-FIR");
    c.setClientType("");
    EXPECT_EQ(0, c.integer(kMotorUp));
    EXPECT_EQ(1u, devsim::writesTo(2, 0x28, 0x23).size());
    EXPECT_TRUE(devsim::writesTo(1, 0x28, 0x23).empty());
}

TEST_F(CameraMotorServiceTest, StatusFlagIsPersisted) {
    Client c(mService);
    EXPECT_FALSE(c.boolean(kGetStatus));
    c.setStatus(true);
    EXPECT_EQ("1", property());
    EXPECT_TRUE(c.boolean(kGetStatus));
    c.setStatus(false);
    EXPECT_EQ("0", property());
    EXPECT_FALSE(c.boolean(kGetStatus));
    property_set(kStatusProperty, "1-and-more");
    EXPECT_TRUE(c.boolean(kGetStatus));
    property_set(kStatusProperty, "true");
    EXPECT_FALSE(c.boolean(kGetStatus));

    // A request without its bool is refused by the parcel and stores nothing.
    Parcel data;
    Parcel reply;
    data.writeInterfaceToken(android::String16("kora.lumacast.IKCameraMotor"));
    EXPECT_NE(OK, mService->transact(kSetStatus, data, &reply));
    EXPECT_EQ(0u, reply.dataSize());
    EXPECT_EQ("true", property());
}

// Bytes from the MCU that are not UTF-8 must not break the reply.
TEST_F(CameraMotorServiceTest, VersionThatIsNotTextIsReportedEmpty) {
    Client c(mService);
    c.setClientType("MT9652-CEDAR");
    devsim::withCedar(2, [](devsim::CedarMcu& m) { m.version = "V1\xff\xfe"; });
    LogCapture log;
    EXPECT_EQ("", c.text(kGetMcuVersion));
    EXPECT_TRUE(log.contains("CameraMotorService::get_mcu_version version is not text",
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
            Client c(mService);
            while (!go) std::this_thread::yield();
            for (int i = 0; i < 100; ++i) {
                if (t < 2) {
                    c.setClientType(t == 0 ? "MT9652-CEDAR" : "RTD51M-FIR");
                } else {
                    const int status = c.integer(kGetMotorStatus);
                    // 4: no driver yet; 2: Cedar's MCU; 3: Damson's.
                    if (status != 4 && status != 2 && status != 3) ++unexpected;
                    c.boolean(kIsSupportMotor);
                }
            }
        });
    }
    go = true;
    for (auto& th : threads) th.join();
    EXPECT_EQ(0, unexpected.load());

    Client c(mService);
    devsim::clearTransfers();
    std::set<int> answers;
    for (int i = 0; i < 5; ++i) answers.insert(c.integer(kGetMotorStatus));
    ASSERT_EQ(1u, answers.size());
    const int bus = *answers.begin() == 2 ? 2 : 1;
    EXPECT_EQ(5u, devsim::transfers().size());
    for (const auto& t : devsim::transfers()) EXPECT_EQ(bus, t.bus);
}

}  // namespace
}  // namespace lumacast::test
