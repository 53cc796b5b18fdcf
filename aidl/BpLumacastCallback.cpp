#include "aidl/BpLumacastCallback.h"

#include <binder/Parcel.h>

namespace kora {
namespace lumacast {

using ::android::OK;
using ::android::Parcel;
using ::android::status_t;
using ::android::binder::Status;

BpLumacastCallback::BpLumacastCallback(const ::android::sp<::android::IBinder>& impl)
    : BpInterface<ILumacastCallback>(impl) {}

BpLumacastCallback::~BpLumacastCallback() {}

Status BpLumacastCallback::call(uint32_t code, Parcel& request, status_t writeStatus) {
    if (writeStatus != OK) return Status::fromStatusT(writeStatus);
    Parcel reply;
    const status_t err = remote()->transact(code, request, &reply, 0);
    if (err != OK) return Status::fromStatusT(err);
    Status status;
    const status_t readErr = status.readFromParcel(reply);
    if (readErr != OK) return Status::fromStatusT(readErr);
    return status;
}

Status BpLumacastCallback::onAiData(const std::string& data) {
    Parcel request;
    request.markForBinder(::android::sp<::android::IBinder>(remote()));
    status_t err = request.writeInterfaceToken(ILumacastCallback::descriptor);
    if (err == OK) err = request.writeUtf8AsUtf16(data);
    return call(TRANSACTION_onAiData, request, err);
}

Status BpLumacastCallback::onProtoBuf(const std::vector<uint8_t>& data) {
    Parcel request;
    request.markForBinder(::android::sp<::android::IBinder>(remote()));
    status_t err = request.writeInterfaceToken(ILumacastCallback::descriptor);
    if (err == OK) err = request.writeByteVector(data);
    return call(TRANSACTION_onProtoBuf, request, err);
}

Status BpLumacastCallback::onFrame(int32_t blockCount, int32_t blockParam,
                                   const std::vector<uint8_t>& data) {
    Parcel request;
    request.markForBinder(::android::sp<::android::IBinder>(remote()));
    status_t err = request.writeInterfaceToken(ILumacastCallback::descriptor);
    if (err == OK) err = request.writeInt32(blockCount);
    if (err == OK) err = request.writeInt32(blockParam);
    if (err == OK) err = request.writeByteVector(data);
    return call(TRANSACTION_onFrame, request, err);
}

}  // namespace lumacast
}  // namespace kora
