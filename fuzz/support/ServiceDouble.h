#pragma once

#include <binder/IBinder.h>
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <lumacast/host/Utf.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "fuzz/support/Check.h"
#include "fuzz/support/FuzzInput.h"
#include "fuzz/support/ParcelFuzz.h"

namespace lumacast::fuzz {

// Whether libutils can carry the text as UTF-16 at all: only a sequence cut short by the
// end of the text is refused.
inline bool validUtf8(const std::string& s) {
    std::u16string unused;
    return lumacast::host::utf8ToUtf16(s, &unused);
}

// What a text that went through a parcel comes out as: libutils converts lone surrogates,
// overlong forms and stray bytes rather than refusing them, so only well-formed text comes
// back unchanged.
inline std::string throughUtf16(const std::string& s) {
    std::u16string wide;
    std::string back;
    if (lumacast::host::utf8ToUtf16(s, &wide)) lumacast::host::utf16ToUtf8(wide, &back);
    return back;
}

// What a service double answers on this input's call, and what it was asked. Both stubs'
// doubles route every operation through give*(), so one set of checks covers both.
class ServiceDouble {
  public:
    enum class Out { kNone, kBool, kInt, kString };

    // Picks the status and the values the next call answers with.
    void plan(FuzzInput& in) {
        switch (in.below(8)) {
            case 0:
                mStatus = android::binder::Status::fromExceptionCode(
                        android::binder::Status::EX_ILLEGAL_ARGUMENT, in.text(64).c_str());
                break;
            case 1:
                mStatus = android::binder::Status::fromServiceSpecificError(in.i32(), "refused");
                break;
            case 2:
                mStatus = android::binder::Status::fromStatusT(in.flag() ? android::UNEXPECTED_NULL
                                                                         : in.i32());
                break;
            case 3:
                mStatus = android::binder::Status::fromExceptionCode(
                        android::binder::Status::EX_NULL_POINTER);
                break;
            default:
                mStatus = android::binder::Status::ok();
                break;
        }
        mBool = in.flag();
        mInt = in.i32();
        mEcho = in.flag();
        mString = in.text(300);  // may be invalid UTF-8: the reply writer must refuse it
    }

    int calls() const { return mCalls; }
    const std::string& plannedString() const { return mString; }
    int32_t plannedInt() const { return mInt; }

    // Checks the stub's promises for a code it serves: a request refused before the call
    // leaves the reply empty (or holds only the null-pointer exception); a served one
    // replies with the service's status and, after an ok status, exactly its value.
    void checkServed(Token token, android::status_t result, const android::Parcel& reply) const {
        using android::OK;
        using android::binder::Status;
        FUZZ_CHECK(mCalls <= 1, "service called %d times", mCalls);
        if (token == Token::kWrong) {
            FUZZ_CHECK(result == android::BAD_TYPE, "wrong token gave %d", result);
        }
        reply.setDataPosition(0);
        if (mCalls == 0) {
            if (reply.dataSize() == 0) {
                FUZZ_CHECK(result != OK, "refused request reported OK");
                return;
            }
            Status status;
            FUZZ_CHECK(status.readFromParcel(reply) == OK, "unreadable refusal");
            FUZZ_CHECK(status.exceptionCode() == Status::EX_NULL_POINTER,
                       "refusal carries exception %d", status.exceptionCode());
            FUZZ_CHECK(result == OK, "null-pointer reply with result %d", result);
            return;
        }
        if (mStatus.exceptionCode() == Status::EX_TRANSACTION_FAILED) {
            // A transport error is returned, never parcelled.
            if (mStatus.transactionError() == android::UNEXPECTED_NULL) {
                FUZZ_CHECK(result == OK, "null-pointer reply with result %d", result);
            } else {
                FUZZ_CHECK(result == mStatus.transactionError() && reply.dataSize() == 0,
                           "transport error %d came back as %d with %zu bytes",
                           mStatus.transactionError(), result, reply.dataSize());
            }
            return;
        }
        Status status;
        FUZZ_CHECK(status.readFromParcel(reply) == OK, "reply status unreadable");
        FUZZ_CHECK(status.exceptionCode() == mStatus.exceptionCode(), "status %d, service gave %d",
                   status.exceptionCode(), mStatus.exceptionCode());
        if (!mStatus.isOk() || mOut == Out::kNone) {
            FUZZ_CHECK(result == OK && reply.dataAvail() == 0, "%zu bytes after the status",
                       reply.dataAvail());
            return;
        }
        if (result != OK) {
            // Only a string that is not UTF-8 can fail to be written.
            FUZZ_CHECK(mOut == Out::kString && !validUtf8(mOutString),
                       "out-value write failed with %d", result);
            return;
        }
        switch (mOut) {
            case Out::kBool:
                FUZZ_CHECK(reply.readBool() == mOutBool, "bool out-value changed");
                break;
            case Out::kInt:
                FUZZ_CHECK(reply.readInt32() == mOutInt, "int out-value changed");
                break;
            case Out::kString: {
                std::string value;
                FUZZ_CHECK(reply.readUtf8FromUtf16(&value) == OK &&
                                   value == throughUtf16(mOutString),
                           "string out-value changed");
                break;
            }
            case Out::kNone:
                break;
        }
        FUZZ_CHECK(reply.dataAvail() == 0, "%zu bytes after the out-value", reply.dataAvail());
    }

  protected:
    // Every operation's in-strings must arrive as UTF-8 and its out-value start cleared.
    android::binder::Status give(const std::string& arg = "") {
        enter(arg);
        return mStatus;
    }
    android::binder::Status giveBool(bool* r, const std::string& arg = "") {
        enter(arg);
        FUZZ_CHECK(!*r, "out-value did not start as false");
        *r = mOutBool = mBool;
        mOut = Out::kBool;
        return mStatus;
    }
    android::binder::Status giveInt(int32_t* v, const std::string& arg = "") {
        enter(arg);
        FUZZ_CHECK(*v == 0, "out-value did not start as 0");
        *v = mOutInt = mInt;
        mOut = Out::kInt;
        return mStatus;
    }
    android::binder::Status giveString(std::string* v, const std::string& arg) {
        enter(arg);
        FUZZ_CHECK(v->empty(), "out-value did not start empty");
        *v = mOutString = mEcho ? arg : mString;
        mOut = Out::kString;
        return mStatus;
    }

  private:
    void enter(const std::string& arg) {
        ++mCalls;
        FUZZ_CHECK(validUtf8(arg), "string argument is not UTF-8");
    }

    android::binder::Status mStatus;
    bool mBool = false;
    int32_t mInt = 0;
    bool mEcho = false;
    std::string mString;

    int mCalls = 0;
    Out mOut = Out::kNone;
    bool mOutBool = false;
    int32_t mOutInt = 0;
    std::string mOutString;
};

// One transaction into a stub whose service is a double: a code around the served range
// first..last, a standard one or any other, and a request built from the input. Only a
// served code may reach the service, and the reply must keep the stub's promises.
template <typename Stub>
void transactOnce(FuzzInput& in, Stub* service, uint32_t first, uint32_t last,
                  const std::vector<android::sp<android::IBinder>>& binders) {
    using android::IBinder;
    const uint32_t codes[] = {in.below(last + 3), IBinder::INTERFACE_TRANSACTION,
                              IBinder::DUMP_TRANSACTION, IBinder::PING_TRANSACTION, in.u32()};
    const uint32_t code = codes[in.below(5)];
    const uint32_t flags = in.flag() ? IBinder::FLAG_ONEWAY : 0;
    android::Parcel request;
    const Token token = buildRequest(in, &request, Stub::descriptor, binders);
    android::Parcel reply;
    const android::status_t result = service->transact(code, request, &reply, flags);
    if (code >= first && code <= last) {
        service->checkServed(token, result, reply);
    } else {
        FUZZ_CHECK(service->calls() == 0, "code %u reached the service", code);
    }
}

}  // namespace lumacast::fuzz
