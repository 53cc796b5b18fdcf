// The listener proxy against a listener that answers anything: each call's reply parcel
// (raw bytes, or a status with fat headers, messages, stray objects, truncation) and the
// transaction's own result come from the input, as do the call and its arguments. Checks
// that the request carried the token and the arguments unchanged, that a failed
// transaction comes back as that transport error, and that an ok status is only reported
// for a reply that says so.
#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "aidl/BpLumacastCallback.h"
#include "fuzz/support/Check.h"
#include "fuzz/support/FuzzInput.h"
#include "fuzz/support/ParcelFuzz.h"
#include "fuzz/support/ServiceDouble.h"

namespace {

using android::BBinder;
using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::binder::Status;
using kora::lumacast::BpLumacastCallback;
using kora::lumacast::ILumacastCallback;
using lumacast::fuzz::FuzzInput;

struct Request {
    bool seen = false;
    uint32_t code = 0;
    uint32_t flags = 0;
    std::vector<uint8_t> bytes;
    status_t result = OK;
    int32_t replyWord = 1;  // the reply's first word; 1 when it has none
};

// A remote listener as the proxy sees it: it keeps the request and answers with the reply
// and the transaction result the input gives.
class Listener : public BBinder {
  public:
    Listener(FuzzInput* in, Request* request) : mIn(in), mRequest(request) {}

  protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        mRequest->seen = true;
        mRequest->code = code;
        mRequest->flags = flags;
        mRequest->bytes.assign(data.data(), data.data() + data.dataSize());
        writeReply(reply);
        reply->setDataPosition(0);
        reply->readInt32(&mRequest->replyWord);
        reply->setDataPosition(0);
        const status_t results[] = {OK,
                                    OK,
                                    OK,
                                    android::UNKNOWN_TRANSACTION,
                                    android::DEAD_OBJECT,
                                    android::FAILED_TRANSACTION,
                                    android::UNEXPECTED_NULL,
                                    mIn->i32()};
        mRequest->result = results[mIn->below(8)];
        return mRequest->result;
    }

  private:
    void writeReply(Parcel* reply) {
        FuzzInput& in = *mIn;
        switch (in.below(4)) {
            case 0: {
                const std::vector<uint8_t> raw = in.run(256);
                reply->setData(raw.data(), raw.size());
                return;
            }
            case 1:
                // A fat header: a size that may run past the end, then whatever follows.
                reply->writeInt32(Status::EX_HAS_REPLY_HEADER);
                reply->writeInt32(in.i32() % 64);
                break;
            default: {
                const int32_t exceptions[] = {Status::EX_NONE,
                                              Status::EX_NONE,
                                              Status::EX_SECURITY,
                                              Status::EX_NULL_POINTER,
                                              Status::EX_SERVICE_SPECIFIC,
                                              Status::EX_PARCELABLE,
                                              Status::EX_TRANSACTION_FAILED,
                                              in.i32()};
                reply->writeInt32(exceptions[in.below(8)]);
                break;
            }
        }
        const std::vector<sp<IBinder>> binders = {nullptr, sp<IBinder>(new BBinder)};
        const uint32_t items = in.below(4);
        for (uint32_t i = 0; i < items; ++i) lumacast::fuzz::writeItem(in, reply, binders);
    }

    FuzzInput* mIn;
    Request* mRequest;
};

// The request as the proxy should have written it: token, then the arguments in order.
void checkRequest(const Request& request, uint32_t code, const std::string& text,
                  const std::vector<uint8_t>& bytes, int32_t count, int32_t param) {
    FUZZ_CHECK(request.code == code, "code %u for call %u", request.code, code);
    FUZZ_CHECK(request.flags == 0, "listener call is not two-way");
    Parcel data;
    data.setData(request.bytes.data(), request.bytes.size());
    FUZZ_CHECK(data.enforceInterface(ILumacastCallback::descriptor), "wrong token");
    if (code == BpLumacastCallback::TRANSACTION_onAiData) {
        std::string sent;
        FUZZ_CHECK(data.readUtf8FromUtf16(&sent) == OK && sent == lumacast::fuzz::throughUtf16(text),
                   "text changed");
    } else {
        if (code == BpLumacastCallback::TRANSACTION_onFrame) {
            FUZZ_CHECK(data.readInt32() == count, "block count changed");
            FUZZ_CHECK(data.readInt32() == param, "block parameter changed");
        }
        std::vector<uint8_t> sent;
        FUZZ_CHECK(data.readByteVector(&sent) == OK && sent == bytes, "bytes changed");
    }
    FUZZ_CHECK(data.dataAvail() == 0, "%zu bytes after the arguments", data.dataAvail());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("LUMACAST_LOG_QUIET", "1", 0);
    lumacast::fuzz::devNull();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput in(data, size);
    const int descriptors = lumacast::fuzz::openDescriptorCount();
    {
        Request request;
        sp<BpLumacastCallback> proxy = new BpLumacastCallback(new Listener(&in, &request));
        const uint32_t code = BpLumacastCallback::TRANSACTION_onAiData + in.below(3);
        const std::string text = in.text(512);  // may be invalid UTF-8
        const std::vector<uint8_t> bytes = in.run(4096);
        const int32_t count = in.i32();
        const int32_t param = in.i32();

        Status status;
        switch (code) {
            case BpLumacastCallback::TRANSACTION_onAiData:
                status = proxy->onAiData(text);
                break;
            case BpLumacastCallback::TRANSACTION_onProtoBuf:
                status = proxy->onProtoBuf(bytes);
                break;
            default:
                status = proxy->onFrame(count, param, bytes);
                break;
        }

        if (!request.seen) {
            // Only a text that cannot travel as UTF-16 stops the call before it is sent.
            FUZZ_CHECK(code == BpLumacastCallback::TRANSACTION_onAiData &&
                               !lumacast::fuzz::validUtf8(text),
                       "call %u never sent", code);
            FUZZ_CHECK(status.transactionError() == android::BAD_VALUE, "refusal gave %s",
                       status.toString8().c_str());
        } else {
            checkRequest(request, code, text, bytes, count, param);
            if (request.result != OK) {
                FUZZ_CHECK(status.transactionError() == request.result,
                           "transaction result %d came back as %s", request.result,
                           status.toString8().c_str());
            }
        }
        if (status.isOk()) {
            // Only a listener that answered OK with an ok status word (or a fat header,
            // which stands for one) makes an ok status.
            FUZZ_CHECK(request.seen && request.result == OK &&
                               (request.replyWord == Status::EX_NONE ||
                                request.replyWord == Status::EX_HAS_REPLY_HEADER),
                       "ok status from result %d and reply word %d", request.result,
                       request.replyWord);
        }
    }
    const int after = lumacast::fuzz::openDescriptorCount();
    FUZZ_CHECK(after == descriptors, "descriptors %d -> %d", descriptors, after);
    return 0;
}
