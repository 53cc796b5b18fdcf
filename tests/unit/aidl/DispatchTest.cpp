// The hand-written stubs and listener proxy, byte for byte, in one process.
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "aidl/ILumacastCallback.h"
#include "tests/unit/aidl/FakeServices.h"

using namespace android;
using android::binder::Status;
using kora::lumacast::IKCameraMotor;
using kora::lumacast::ILumacast;
using kora::lumacast::ILumacastCallback;
using lumacast::test::FakeKCameraMotor;
using lumacast::test::FakeLumacast;

namespace {

using Bytes = std::vector<uint8_t>;
using Writer = std::function<void(Parcel&)>;

Bytes bytesOf(const Parcel& p) { return Bytes(p.data(), p.data() + p.dataSize()); }

// What a reply of an ok status followed by the writer's value looks like.
Bytes okReply(const Writer& value) {
    Parcel p;
    p.writeInt32(0);
    if (value) value(p);
    return bytesOf(p);
}

Bytes statusReply(const Status& s) {
    Parcel p;
    s.writeToParcel(&p);
    return bytesOf(p);
}

void put(Parcel& p, bool v) { p.writeBool(v); }
void put(Parcel& p, int32_t v) { p.writeInt32(v); }
void put(Parcel& p, const std::string& v) { p.writeUtf8AsUtf16(v); }
void put(Parcel& p, const char* v) { p.writeUtf8AsUtf16(std::string(v)); }
void put(Parcel& p, const sp<IBinder>& v) { p.writeStrongBinder(v); }

// Writes the values in turn, strings as UTF-16.
template <typename... V>
Writer values(V... v) {
    return [=](Parcel& p) { (put(p, v), ...); };
}

status_t call(const sp<IBinder>& b, uint32_t code, const String16& token, const Writer& args,
              Parcel* reply) {
    Parcel data;
    data.writeInterfaceToken(token);
    if (args) args(data);
    return b->transact(code, data, reply);
}

// A refused request: the result is the read error with nothing in the reply, or OK with
// only a null-pointer status (a missing non-null argument).
void expectRefused(const sp<IBinder>& b, const String16& token, uint32_t code, const Writer& args,
                   status_t result) {
    Parcel reply;
    EXPECT_EQ(call(b, code, token, args, &reply), result) << code;
    if (result == OK) {
        EXPECT_EQ(bytesOf(reply), statusReply(Status::fromExceptionCode(Status::EX_NULL_POINTER)))
                << code;
    } else {
        EXPECT_EQ(reply.dataSize(), 0u) << code;
    }
}

// A listener that is nothing but a plain binder: notes the code that reached it and
// answers as told.
class RecordingBinder : public BBinder {
  public:
    status_t answer = OK;
    Status status = Status::ok();
    bool writeStatus = true;
    uint32_t code = 0;

  protected:
    status_t onTransact(uint32_t c, const Parcel&, Parcel* reply, uint32_t) override {
        code = c;
        if (writeStatus) status.writeToParcel(reply);
        return answer;
    }
};

class LocalListener : public BnInterface<ILumacastCallback> {
  public:
    Status onAiData(const std::string&) override { return Status::ok(); }
    Status onProtoBuf(const std::vector<uint8_t>&) override { return Status::ok(); }
    Status onFrame(int32_t, int32_t, const std::vector<uint8_t>&) override { return Status::ok(); }
};

struct Row {
    uint32_t code;
    Writer args;
    std::string call;
    Writer result;
};

TEST(LumacastDispatchTest, EveryCodeReadsItsArgumentsAndWritesItsResult) {
    sp<FakeLumacast> fake = new FakeLumacast();
    sp<LocalListener> listener = new LocalListener();
    const std::string unicode = "\xc3\xbc\xe2\x82\xac\xf0\x9d\x84\x9e";
    const sp<IBinder> binder = IInterface::asBinder(listener);
    const Row rows[] = {
            {1, values(binder), "setCallback", values(true)},
            {2, values(binder), "removeCallback", values(true)},
            {3, values(true), "setZoomSwitch(1)", values(true)},
            {4, nullptr, "getZoomSwitch", values(true)},
            {5, nullptr, "getAiAlgoList", values(0x12345678)},
            {6, values(5), "setAiSubscribeType(5)", values(true)},
            {7, nullptr, "getAiSubscribeStatus", values(5)},
            {8, values(unicode), "setAiProperty(" + unicode + ")", values(true)},
            {9, values("x"), "getAiProperty(x)", values("value of x")},
            {10, values(4, "opt"), "setAiSubscribe(4,opt)", values(true)},
            {11, nullptr, "getAiSubscribe", values("4/opt")},
            {12, values(3, "1920x1080"), "grabFrame(3,1920x1080)", values(true)},
            {13, values("doa"), "sendDoa(doa)", values(true)},
            {14, values(-2), "setAutoFraming(-2)", values(false)},
            {15, nullptr, "getAutoFraming", values(false)},
            {16, values(1, 2), "setZoomMode(1,2)", values(true)},
            {17, nullptr, "getZoomMode", values("1,2")},
    };
    std::vector<std::string> expectedCalls;
    for (const Row& row : rows) {
        Parcel reply;
        EXPECT_EQ(call(fake, row.code, ILumacast::descriptor, row.args, &reply), OK) << row.call;
        EXPECT_EQ(bytesOf(reply), okReply(row.result)) << row.call;
        expectedCalls.push_back(row.call);
        EXPECT_EQ(fake->calls(), expectedCalls);
    }
}

TEST(LumacastDispatchTest, RefusedRequestsLeaveTheReplyEmptyAndTheServiceUncalled) {
    sp<FakeLumacast> fake = new FakeLumacast();
    const Writer nullBinder = values(sp<IBinder>());
    for (uint32_t code = 1; code <= 17; ++code) {
        expectRefused(fake, ILumacastCallback::descriptor, code, nullptr, BAD_TYPE);
        Parcel noToken;
        EXPECT_EQ(fake->transact(code, Parcel(), &noToken), BAD_TYPE);
        EXPECT_EQ(noToken.dataSize(), 0u);
    }
    struct Case {
        uint32_t code;
        Writer args;
        status_t result;
    };
    const Case cases[] = {
            {16, values(1), NOT_ENOUGH_DATA},
            {3, nullptr, NOT_ENOUGH_DATA},
            {6, nullptr, NOT_ENOUGH_DATA},
            {10, values(1), OK},  // the missing string is a null string
            // A null listener gets only a null-pointer status; no binder at all is refused.
            {1, nullBinder, OK},
            {2, nullBinder, OK},
            {1, values(0), BAD_TYPE},
            {2, values(0), BAD_TYPE},
            {12, values(3, 1000), OK},
    };
    for (const Case& c : cases) {
        expectRefused(fake, ILumacast::descriptor, c.code, c.args, c.result);
    }
    EXPECT_TRUE(fake->calls().empty());

    // libbinder Parcel.cpp readUtf8FromUtf16: an unpaired surrogate is dropped, not refused,
    // and the call goes on with the rest of the string.
    Parcel reply;
    const Writer loneSurrogate = values(2, 0x0078d800, 0);  // U+D800, 'x'
    EXPECT_EQ(call(fake, 9, ILumacast::descriptor, loneSurrogate, &reply), OK);
    EXPECT_EQ(bytesOf(reply), okReply(values("value of x")));
    EXPECT_EQ(fake->calls(), std::vector<std::string>{"getAiProperty(x)"});
}

TEST(LumacastDispatchTest, OtherCodesAndOtherDescriptorsAreBBindersToAnswer) {
    sp<FakeLumacast> fake = new FakeLumacast();
    for (uint32_t code : {0u, 18u, 0x00ffffffu}) {
        expectRefused(fake, ILumacast::descriptor, code, values(1), UNKNOWN_TRANSACTION);
    }
    Parcel reply;
    EXPECT_EQ(fake->transact(IBinder::INTERFACE_TRANSACTION, Parcel(), &reply), OK);
    EXPECT_EQ(reply.readString16(), ILumacast::descriptor);
    EXPECT_EQ(fake->transact(IBinder::PING_TRANSACTION, Parcel(), &reply), OK);
    EXPECT_TRUE(fake->calls().empty());

    // The local interface only for the exact descriptor.
    EXPECT_EQ(fake->queryLocalInterface(String16("kora.lumacast.ILumacast")).get(),
              static_cast<IInterface*>(fake.get()));
    for (const char16_t* other : {u"kora.lumacast.ILumacas", u"kora.lumacast.ILumacastCallback",
                                  u"Kora.lumacast.ILumacast", u""}) {
        EXPECT_EQ(fake->queryLocalInterface(String16(other)), nullptr);
    }
    EXPECT_EQ(fake->queryLocalInterface(String16(u"kora.lumacast.ILumacast\0", 24)), nullptr);
}

TEST(LumacastDispatchTest, StatusesThatAreNotOkTravelAlone) {
    sp<FakeLumacast> fake = new FakeLumacast();
    Parcel reply;
    EXPECT_EQ(call(fake, 6, ILumacast::descriptor, values(-5), &reply), OK);
    EXPECT_EQ(bytesOf(reply), statusReply(Status::fromServiceSpecificError(-5, "negative type")));

    fake->failNext(Status::fromExceptionCode(Status::EX_ILLEGAL_STATE, "busy"));
    Parcel r2;
    EXPECT_EQ(call(fake, 17, ILumacast::descriptor, nullptr, &r2), OK);
    EXPECT_EQ(bytesOf(r2),
              statusReply(Status::fromExceptionCode(Status::EX_ILLEGAL_STATE, "busy")));

    // A transport failure cannot be parcelled: it becomes the call's result.
    fake->failNext(Status::fromStatusT(NO_MEMORY));
    Parcel r3;
    EXPECT_EQ(call(fake, 4, ILumacast::descriptor, nullptr, &r3), NO_MEMORY);
    EXPECT_EQ(r3.dataSize(), 0u);
}

// Copied by static constructors of this file, which run before any of the interface library
// linked after it: a client's static object that needs a descriptor finds it already set.
const String16 kDescriptorsAtStart[] = {ILumacast::descriptor, ILumacastCallback::descriptor,
                                        IKCameraMotor::descriptor};

TEST(DescriptorTest, ConstantDataBeforeAnyCodeRuns) {
    const char* texts[] = {"kora.lumacast.ILumacast", "kora.lumacast.ILumacastCallback",
                           "kora.lumacast.IKCameraMotor"};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_STREQ(String8(kDescriptorsAtStart[i]).string(), texts[i]);
        // Shared, not copied: the characters stay where the compiler put them.
        EXPECT_TRUE(kDescriptorsAtStart[i].isStaticString()) << texts[i];
    }
}

TEST(MotorDispatchTest, RefusedRequestsLeaveTheReplyEmptyAndTheServiceUncalled) {
    sp<FakeKCameraMotor> fake = new FakeKCameraMotor();
    for (uint32_t code = 1; code <= 11; ++code) {
        expectRefused(fake, ILumacast::descriptor, code, nullptr, BAD_TYPE);
    }
    expectRefused(fake, IKCameraMotor::descriptor, 8, nullptr, NOT_ENOUGH_DATA);
    // A missing string is a null string.
    expectRefused(fake, IKCameraMotor::descriptor, 1, nullptr, OK);
    expectRefused(fake, IKCameraMotor::descriptor, 11, nullptr, OK);
    expectRefused(fake, IKCameraMotor::descriptor, 0, nullptr, UNKNOWN_TRANSACTION);
    expectRefused(fake, IKCameraMotor::descriptor, 12, nullptr, UNKNOWN_TRANSACTION);
    EXPECT_TRUE(fake->calls().empty());
    EXPECT_EQ(fake->queryLocalInterface(String16("kora.lumacast.IKCameraMotor")).get(),
              static_cast<IInterface*>(fake.get()));
    EXPECT_EQ(fake->queryLocalInterface(String16("kora.lumacast.ILumacast")), nullptr);

    fake->failNext(Status::fromExceptionCode(Status::EX_SECURITY));
    Parcel r;
    EXPECT_EQ(call(fake, 2, IKCameraMotor::descriptor, nullptr, &r), OK);
    EXPECT_EQ(bytesOf(r), statusReply(Status::fromExceptionCode(Status::EX_SECURITY)));
}

// The request bytes are checked by the callback-reply fuzzer's corpus and by the
// generated listener stub in CompatTest; here, what comes back.
TEST(ListenerProxyTest, WrapsRemoteListenersAndTurnsTheirAnswersIntoStatuses) {
    sp<RecordingBinder> remote = new RecordingBinder();
    sp<ILumacastCallback> proxy = ILumacastCallback::asInterface(remote);
    ASSERT_NE(proxy, nullptr);
    EXPECT_EQ(IInterface::asBinder(proxy).get(), static_cast<IBinder*>(remote.get()));
    EXPECT_EQ(proxy->getInterfaceDescriptor(), ILumacastCallback::descriptor);
    // Listeners of this process are called directly; no listener is no proxy.
    sp<LocalListener> local = new LocalListener();
    EXPECT_EQ(ILumacastCallback::asInterface(IInterface::asBinder(local)).get(),
              static_cast<ILumacastCallback*>(local.get()));
    EXPECT_EQ(ILumacastCallback::asInterface(nullptr), nullptr);

    // Text that is no UTF-8 never leaves.
    EXPECT_EQ(proxy->onAiData("\xff").transactionError(), BAD_VALUE);
    EXPECT_EQ(remote->code, 0u);

    remote->answer = UNKNOWN_TRANSACTION;
    remote->writeStatus = false;
    Status s = proxy->onFrame(1, 1, {});
    EXPECT_EQ(s.exceptionCode(), Status::EX_TRANSACTION_FAILED);
    EXPECT_EQ(s.transactionError(), UNKNOWN_TRANSACTION);

    remote->answer = OK;
    remote->writeStatus = true;
    remote->status = Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT, "no");
    s = proxy->onProtoBuf({9});
    EXPECT_EQ(s.exceptionCode(), Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(String8(s.exceptionMessage()), String8("no"));

    // An ok transaction without a status in its reply.
    remote->writeStatus = false;
    EXPECT_EQ(proxy->onProtoBuf({9}).transactionError(), NOT_ENOUGH_DATA);
}

}  // namespace
