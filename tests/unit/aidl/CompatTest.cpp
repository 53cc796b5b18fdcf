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
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
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

class Listener : public kora::lumacast::BnLumacastCallback {
  public:
    struct Call {
        std::string what;
        std::string text;
        int32_t a = 0;
        int32_t b = 0;
        std::vector<uint8_t> bytes;
        std::thread::id thread;
    };

    Status onAiData(const std::string& data) override {
        return add({"onAiData", data, 0, 0, {}, {}});
    }
    Status onProtoBuf(const std::vector<uint8_t>& data) override {
        return add({"onProtoBuf", "", 0, 0, data, {}});
    }
    Status onFrame(int32_t blockCount, int32_t blockParam,
                   const std::vector<uint8_t>& data) override {
        return add({"onFrame", "", blockCount, blockParam, data, {}});
    }

    std::vector<Call> take() {
        std::lock_guard<std::mutex> lock(mLock);
        return std::move(mCalls);
    }

  private:
    Status add(Call c) {
        c.thread = std::this_thread::get_id();
        std::lock_guard<std::mutex> lock(mLock);
        mCalls.push_back(std::move(c));
        return Status::ok();
    }
    std::mutex mLock;
    std::vector<Call> mCalls;
};

// Knows only the first two codes, like an older listener.
class OldListener : public BBinder {
  protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        if (code == 1 || code == 2) return Status::ok().writeToParcel(reply);
        return BBinder::onTransact(code, data, reply, flags);
    }
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

TEST_F(AidlCompatTest, EveryStreamingCallRoundTrips) {
    bool b = false;
    int32_t i = 0;
    std::string s;

    EXPECT_TRUE(mLumacast->setZoomSwitch(true, &b).isOk());
    EXPECT_TRUE(b);
    b = false;
    EXPECT_TRUE(mLumacast->getZoomSwitch(&b).isOk());
    EXPECT_TRUE(b);
    EXPECT_TRUE(mLumacast->getAiAlgoList(&i).isOk());
    EXPECT_EQ(i, 0x12345678);
    EXPECT_TRUE(mLumacast->setAiSubscribeType(7, &b).isOk());
    EXPECT_TRUE(b);
    EXPECT_TRUE(mLumacast->getAiSubscribeStatus(&i).isOk());
    EXPECT_EQ(i, 7);
    EXPECT_TRUE(mLumacast->setAiProperty("\xc3\xbc\xe2\x82\xac\xf0\x9d\x84\x9e", &b).isOk());
    EXPECT_TRUE(b);
    EXPECT_TRUE(mLumacast->getAiProperty("x", &s).isOk());
    EXPECT_EQ(s, "value of x");
    EXPECT_TRUE(mLumacast->setAiSubscribe(5, "opt", &b).isOk());
    EXPECT_TRUE(b);
    EXPECT_TRUE(mLumacast->getAiSubscribe(&s).isOk());
    EXPECT_EQ(s, "5/opt");
    EXPECT_TRUE(mLumacast->grabFrame(3, "1920x1080", &b).isOk());
    EXPECT_TRUE(b);
    EXPECT_TRUE(mLumacast->sendDoa("{\"angle\":30}", &b).isOk());
    EXPECT_TRUE(b);
    EXPECT_TRUE(mLumacast->setAutoFraming(1, &b).isOk());
    EXPECT_TRUE(b);
    EXPECT_TRUE(mLumacast->getAutoFraming(&b).isOk());
    EXPECT_TRUE(b);
    EXPECT_TRUE(mLumacast->setZoomMode(1, 2, &b).isOk());
    EXPECT_TRUE(b);
    EXPECT_TRUE(mLumacast->getZoomMode(&s).isOk());
    EXPECT_EQ(s, "1,2");
    // Strings longer than one message segment and empty ones.
    const std::string big(100000, 'q');
    EXPECT_TRUE(mLumacast->getAiProperty(big, &s).isOk());
    EXPECT_EQ(s, "value of " + big);
}

TEST_F(AidlCompatTest, ListenersAreCalledBackNestedAndFromServiceThreads) {
    sp<Listener> listener = new Listener();
    bool b = false;
    ASSERT_TRUE(mLumacast->setCallback(listener, &b).isOk());
    EXPECT_TRUE(b);

    // Nested in the call: on this thread.
    ASSERT_TRUE(mLumacast->sendDoa("doa", &b).isOk());
    EXPECT_TRUE(b);
    auto calls = listener->take();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].what, "onAiData");
    EXPECT_EQ(calls[0].text, "doa");
    EXPECT_EQ(calls[1].what, "onProtoBuf");
    EXPECT_EQ(calls[1].bytes, (std::vector<uint8_t>{0, 1, 2}));
    EXPECT_EQ(calls[2].what, "onFrame");
    EXPECT_EQ(calls[2].a, 3);
    EXPECT_EQ(calls[2].b, 7);
    EXPECT_EQ(calls[2].bytes, (std::vector<uint8_t>{'d', 'o', 'a'}));
    for (const auto& c : calls) EXPECT_EQ(c.thread, std::this_thread::get_id());

    // From a thread of the service: on this process's pool.
    ASSERT_TRUE(mLumacast->grabFrame(3, "1920x1080", &b).isOk());
    EXPECT_TRUE(b);
    calls = listener->take();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].text, "1920x1080");
    EXPECT_EQ(calls[2].a, 3);
    for (const auto& c : calls) EXPECT_NE(c.thread, std::this_thread::get_id());

    ASSERT_TRUE(mLumacast->removeCallback(listener, &b).isOk());
    EXPECT_TRUE(b);
    ASSERT_TRUE(mLumacast->removeCallback(listener, &b).isOk());
    EXPECT_FALSE(b);
    ASSERT_TRUE(mLumacast->sendDoa("gone", &b).isOk());
    EXPECT_TRUE(listener->take().empty());
}

TEST_F(AidlCompatTest, RefusalsReachTheGeneratedProxyAsStatuses) {
    bool b = true;
    Status s = mLumacast->setCallback(nullptr, &b);
    EXPECT_EQ(s.exceptionCode(), Status::EX_NULL_POINTER);
    s = mLumacast->removeCallback(nullptr, &b);
    EXPECT_EQ(s.exceptionCode(), Status::EX_NULL_POINTER);

    s = mLumacast->setAiSubscribeType(-3, &b);
    EXPECT_EQ(s.exceptionCode(), Status::EX_SERVICE_SPECIFIC);
    EXPECT_EQ(s.serviceSpecificErrorCode(), -3);
    EXPECT_EQ(String8(s.exceptionMessage()), String8("negative type"));

    // A request under another interface's token.
    Parcel data;
    Parcel reply;
    data.writeInterfaceToken(IKCameraMotor::descriptor);
    data.writeInt32(1);
    data.writeInt32(2);
    EXPECT_EQ(IInterface::asBinder(mLumacast)->transact(16, data, &reply), BAD_TYPE);
    EXPECT_EQ(reply.dataSize(), 0u);
    EXPECT_EQ(IInterface::asBinder(mLumacast)->getInterfaceDescriptor(), ILumacast::descriptor);
    EXPECT_EQ(IInterface::asBinder(mMotor)->getInterfaceDescriptor(), IKCameraMotor::descriptor);
}

TEST_F(AidlCompatTest, ListenerWithoutFrameCodeAnswersUnknownTransaction) {
    sp<Listener> good = new Listener();
    sp<OldListener> old = new OldListener();
    bool b = false;
    ASSERT_TRUE(mLumacast->setCallback(good, &b).isOk());
    // The old listener is passed as a plain binder under the listener interface.
    Parcel data;
    Parcel reply;
    data.writeInterfaceToken(ILumacast::descriptor);
    data.writeStrongBinder(sp<IBinder>(old));
    ASSERT_EQ(IInterface::asBinder(mLumacast)->transact(1, data, &reply), OK);
    ASSERT_TRUE(mLumacast->sendDoa("x", &b).isOk());
    EXPECT_FALSE(b);
    std::string results;
    ASSERT_TRUE(mLumacast->getAiProperty("callbacks", &results).isOk());
    EXPECT_EQ(results, "0,0,0,0,0," + std::to_string(UNKNOWN_TRANSACTION));
    EXPECT_EQ(good->take().size(), 3u);
    ASSERT_TRUE(mLumacast->removeCallback(good, &b).isOk());
    Parcel data2;
    data2.writeInterfaceToken(ILumacast::descriptor);
    data2.writeStrongBinder(sp<IBinder>(old));
    ASSERT_EQ(IInterface::asBinder(mLumacast)->transact(2, data2, &reply), OK);
}

TEST_F(AidlCompatTest, EveryMotorCallRoundTrips) {
    bool b = true;
    int32_t i = 0;
    std::string s = "x";
    ASSERT_TRUE(mMotor->set_client_type("").isOk());
    EXPECT_TRUE(mMotor->get_mcu_version(&s).isOk());
    EXPECT_EQ(s, "");
    EXPECT_TRUE(mMotor->is_support_motor(&b).isOk());
    EXPECT_FALSE(b);

    ASSERT_TRUE(mMotor->set_client_type("birch").isOk());
    EXPECT_TRUE(mMotor->motor_down(&i).isOk());
    EXPECT_EQ(i, -7);
    EXPECT_TRUE(mMotor->motor_up(&i).isOk());
    EXPECT_EQ(i, 256);
    EXPECT_TRUE(mMotor->get_motor_status(&i).isOk());
    EXPECT_EQ(i, 4096);
    EXPECT_TRUE(mMotor->get_rise_time(&i).isOk());
    EXPECT_EQ(i, 1500);
    EXPECT_TRUE(mMotor->get_switch_status(&b).isOk());
    EXPECT_TRUE(b);
    EXPECT_TRUE(mMotor->is_support_motor(&b).isOk());
    EXPECT_TRUE(b);
    EXPECT_TRUE(mMotor->set_status(true).isOk());
    EXPECT_TRUE(mMotor->get_status(&b).isOk());
    EXPECT_TRUE(b);
    EXPECT_TRUE(mMotor->set_status(false).isOk());
    EXPECT_TRUE(mMotor->get_status(&b).isOk());
    EXPECT_FALSE(b);
    EXPECT_TRUE(mMotor->get_mcu_version(&s).isOk());
    EXPECT_EQ(s, "v1.2-birch");
    EXPECT_TRUE(mMotor->mcu_upgrade("/data/fw.bin", &i).isOk());
    EXPECT_EQ(i, 12);
}

}  // namespace
