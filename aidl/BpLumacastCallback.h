#pragma once

#include <binder/IInterface.h>

#include "aidl/ILumacastCallback.h"

namespace kora {
namespace lumacast {

// The service's handle on a listener in another process: one two-way call per datum.
class BpLumacastCallback : public ::android::BpInterface<ILumacastCallback> {
  public:
    enum : uint32_t {
        TRANSACTION_onAiData = ::android::IBinder::FIRST_CALL_TRANSACTION + 0,
        TRANSACTION_onProtoBuf = ::android::IBinder::FIRST_CALL_TRANSACTION + 1,
        TRANSACTION_onFrame = ::android::IBinder::FIRST_CALL_TRANSACTION + 2,
    };

    explicit BpLumacastCallback(const ::android::sp<::android::IBinder>& impl);
    ~BpLumacastCallback() override;

    ::android::binder::Status onAiData(const std::string& data) override;
    ::android::binder::Status onProtoBuf(const std::vector<uint8_t>& data) override;
    ::android::binder::Status onFrame(int32_t blockCount, int32_t blockParam,
                                      const std::vector<uint8_t>& data) override;

  private:
    // Sends the request and turns the reply (or the failure) into the call's status.
    ::android::binder::Status call(uint32_t code, ::android::Parcel& request,
                                   ::android::status_t writeStatus);
};

}  // namespace lumacast
}  // namespace kora
