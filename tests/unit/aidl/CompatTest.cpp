// The proxies and the listener stub that the aidl tool generates from
// aidl/kora/lumacast/*.aidl, against the hand-written stubs and listener proxy running in
// another process: every transaction code, with its in- and out-values.
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <kora/lumacast/BnLumacastCallback.h>
#include <kora/lumacast/IKCameraMotor.h>
#include <kora/lumacast/ILumacast.h>

#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/binder/ChildProcess.h"

using namespace android;
using android::binder::Status;
using kora::lumacast::IKCameraMotor;
using kora::lumacast::ILumacast;
using lumacast::test::ChildProcess;

namespace {

// Notes each call as text, "onFrame(3,7,100 111 97)", and the threads they came on.
class Listener : public kora::lumacast::BnLumacastCallback {
  public:
    Status onAiData(const std::string& data) override { return add("onAiData(" + data + ")"); }
    Status onProtoBuf(const std::vector<uint8_t>& data) override {
        return add("onProtoBuf(" + text(data) + ")");
    }
    Status onFrame(int32_t blockCount, int32_t blockParam,
                   const std::vector<uint8_t>& data) override {
        return add("onFrame(" + std::to_string(blockCount) + "," + std::to_string(blockParam) +
                   "," + text(data) + ")");
    }

    std::vector<std::string> take(std::set<std::thread::id>* threads = nullptr) {
        std::lock_guard<std::mutex> lock(mLock);
        if (threads != nullptr) threads->swap(mThreads);
        mThreads.clear();
        return std::move(mCalls);
    }

  private:
    static std::string text(const std::vector<uint8_t>& bytes) {
        std::string t;
        for (uint8_t b : bytes) t += (t.empty() ? "" : " ") + std::to_string(b);
        return t;
    }
    Status add(const std::string& call) {
        std::lock_guard<std::mutex> lock(mLock);
        mCalls.push_back(call);
        mThreads.insert(std::this_thread::get_id());
        return Status::ok();
    }
    std::mutex mLock;
    std::vector<std::string> mCalls;
    std::set<std::thread::id> mThreads;
};

class AidlCompatTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        ProcessState::self()->startThreadPool();
        sServer = new ChildProcess(AIDL_COMPAT_SERVER_PATH, {});
    }
    static void TearDownTestSuite() {
        delete sServer;
        sServer = nullptr;
    }
    void SetUp() override {
        ASSERT_TRUE(sServer->running());
        mLumacast = interface_cast<ILumacast>(
                defaultServiceManager()->getService(String16("lumacastservice")));
        mMotor = interface_cast<IKCameraMotor>(
                defaultServiceManager()->getService(String16("cameramotorservice")));
        ASSERT_NE(mLumacast, nullptr);
        ASSERT_NE(mMotor, nullptr);
        // Generated proxies, not the objects themselves.
        ASSERT_NE(IInterface::asBinder(mLumacast)->remoteBinder(), nullptr);
    }

    static ChildProcess* sServer;
    sp<ILumacast> mLumacast;
    sp<IKCameraMotor> mMotor;
};

ChildProcess* AidlCompatTest::sServer = nullptr;

// The out-value of a call that must succeed; read after the call, through the reference.
template <typename T>
T got(const Status& s, const T& out) {
    EXPECT_TRUE(s.isOk()) << s.toString8().c_str();
    return out;
}

TEST_F(AidlCompatTest, EveryStreamingCallRoundTrips) {
    bool b = false;
    int32_t i = 0;
    std::string s;
    EXPECT_TRUE(got(mLumacast->setZoomSwitch(true, &b), b));
    b = false;
    EXPECT_TRUE(got(mLumacast->getZoomSwitch(&b), b));
    EXPECT_EQ(got(mLumacast->getAiAlgoList(&i), i), 0x12345678);
    EXPECT_TRUE(got(mLumacast->setAiSubscribeType(7, &b), b));
    EXPECT_EQ(got(mLumacast->getAiSubscribeStatus(&i), i), 7);
    EXPECT_TRUE(got(mLumacast->setAiProperty("\xc3\xbc\xe2\x82\xac\xf0\x9d\x84\x9e", &b), b));
    EXPECT_EQ(got(mLumacast->getAiProperty("x", &s), s), "value of x");
    EXPECT_TRUE(got(mLumacast->setAiSubscribe(5, "opt", &b), b));
    EXPECT_EQ(got(mLumacast->getAiSubscribe(&s), s), "5/opt");
    EXPECT_TRUE(got(mLumacast->grabFrame(3, "1920x1080", &b), b));
    EXPECT_TRUE(got(mLumacast->sendDoa("{\"angle\":30}", &b), b));
    EXPECT_TRUE(got(mLumacast->setAutoFraming(1, &b), b));
    EXPECT_TRUE(got(mLumacast->getAutoFraming(&b), b));
    EXPECT_TRUE(got(mLumacast->setZoomMode(1, 2, &b), b));
    EXPECT_EQ(got(mLumacast->getZoomMode(&s), s), "1,2");
    // Strings longer than one message segment.
    const std::string big(100000, 'q');
    EXPECT_EQ(got(mLumacast->getAiProperty(big, &s), s), "value of " + big);
}

TEST_F(AidlCompatTest, ListenersAreCalledBackNestedAndFromServiceThreads) {
    sp<Listener> listener = new Listener();
    bool b = false;
    EXPECT_TRUE(got(mLumacast->setCallback(listener, &b), b));

    // Nested in the call: on this thread.
    EXPECT_TRUE(got(mLumacast->sendDoa("doa", &b), b));
    std::set<std::thread::id> threads;
    EXPECT_EQ(listener->take(&threads),
              (std::vector<std::string>{"onAiData(doa)", "onProtoBuf(0 1 2)",
                                        "onFrame(3,7,100 111 97)"}));
    EXPECT_EQ(threads, std::set<std::thread::id>{std::this_thread::get_id()});

    // From a thread of the service: on this process's pool.
    EXPECT_TRUE(got(mLumacast->grabFrame(3, "1920x1080", &b), b));
    const std::vector<std::string> calls = listener->take(&threads);
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0], "onAiData(1920x1080)");
    EXPECT_EQ(calls[2].rfind("onFrame(3,7,", 0), 0u) << calls[2];
    EXPECT_EQ(threads.count(std::this_thread::get_id()), 0u);

    EXPECT_TRUE(got(mLumacast->removeCallback(listener, &b), b));
    EXPECT_FALSE(got(mLumacast->removeCallback(listener, &b), b));
    ASSERT_TRUE(mLumacast->sendDoa("gone", &b).isOk());
    EXPECT_TRUE(listener->take().empty());
}

TEST_F(AidlCompatTest, EveryMotorCallRoundTrips) {
    bool b = true;
    int32_t i = 0;
    std::string s = "x";
    ASSERT_TRUE(mMotor->set_client_type("").isOk());
    EXPECT_EQ(got(mMotor->get_mcu_version(&s), s), "");
    EXPECT_FALSE(got(mMotor->is_support_motor(&b), b));

    ASSERT_TRUE(mMotor->set_client_type("birch").isOk());
    EXPECT_EQ(got(mMotor->motor_down(&i), i), -7);
    EXPECT_EQ(got(mMotor->motor_up(&i), i), 256);
    EXPECT_EQ(got(mMotor->get_motor_status(&i), i), 4096);
    EXPECT_EQ(got(mMotor->get_rise_time(&i), i), 1500);
    EXPECT_TRUE(got(mMotor->get_switch_status(&b), b));
    EXPECT_TRUE(got(mMotor->is_support_motor(&b), b));
    for (bool status : {true, false}) {
        EXPECT_TRUE(mMotor->set_status(status).isOk());
        EXPECT_EQ(got(mMotor->get_status(&b), b), status);
    }
    EXPECT_EQ(got(mMotor->get_mcu_version(&s), s), "v1.2-birch");
    EXPECT_EQ(got(mMotor->mcu_upgrade("/data/fw.bin", &i), i), 12);
}

}  // namespace
