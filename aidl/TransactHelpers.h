#pragma once

#include <binder/Parcel.h>
#include <binder/Status.h>
#include <stdint.h>

#include <string>

namespace kora {
namespace lumacast {
namespace transact {

// The readers and writers AIDL uses for each type of these interfaces.
inline ::android::status_t readArg(const ::android::Parcel& data, bool* value) {
    return data.readBool(value);
}
inline ::android::status_t readArg(const ::android::Parcel& data, int32_t* value) {
    return data.readInt32(value);
}
inline ::android::status_t readArg(const ::android::Parcel& data, std::string* value) {
    return data.readUtf8FromUtf16(value);
}

inline ::android::status_t writeResult(::android::Parcel* reply, bool value) {
    return reply->writeBool(value);
}
inline ::android::status_t writeResult(::android::Parcel* reply, int32_t value) {
    return reply->writeInt32(value);
}
inline ::android::status_t writeResult(::android::Parcel* reply, const std::string& value) {
    return reply->writeUtf8AsUtf16(value);
}

// The status first; the result only after an ok status.
template <typename T>
::android::status_t writeReply(::android::Parcel* reply, const ::android::binder::Status& status,
                               const T& result) {
    const ::android::status_t err = status.writeToParcel(reply);
    if (err != ::android::OK || !status.isOk()) return err;
    return writeResult(reply, result);
}

inline ::android::status_t writeReply(::android::Parcel* reply,
                                      const ::android::binder::Status& status) {
    return status.writeToParcel(reply);
}

// A missing non-null argument becomes a null-pointer exception for the caller.
inline ::android::status_t finish(::android::status_t result, ::android::Parcel* reply) {
    if (result != ::android::UNEXPECTED_NULL || reply == nullptr) return result;
    return ::android::binder::Status::fromExceptionCode(::android::binder::Status::EX_NULL_POINTER)
            .writeToParcel(reply);
}

}  // namespace transact
}  // namespace lumacast
}  // namespace kora
