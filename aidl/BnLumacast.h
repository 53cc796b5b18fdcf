#pragma once

#include <binder/IInterface.h>
#include <binder/Parcel.h>

#include "aidl/ILumacast.h"

namespace kora {
namespace lumacast {

// Serving side of ILumacast: reads each request, calls the service, writes the reply.
class BnLumacast : public ::android::BnInterface<ILumacast> {
  public:
    enum : uint32_t {
        TRANSACTION_setCallback = ::android::IBinder::FIRST_CALL_TRANSACTION + 0,
        TRANSACTION_removeCallback = ::android::IBinder::FIRST_CALL_TRANSACTION + 1,
        TRANSACTION_setZoomSwitch = ::android::IBinder::FIRST_CALL_TRANSACTION + 2,
        TRANSACTION_getZoomSwitch = ::android::IBinder::FIRST_CALL_TRANSACTION + 3,
        TRANSACTION_getAiAlgoList = ::android::IBinder::FIRST_CALL_TRANSACTION + 4,
        TRANSACTION_setAiSubscribeType = ::android::IBinder::FIRST_CALL_TRANSACTION + 5,
        TRANSACTION_getAiSubscribeStatus = ::android::IBinder::FIRST_CALL_TRANSACTION + 6,
        TRANSACTION_setAiProperty = ::android::IBinder::FIRST_CALL_TRANSACTION + 7,
        TRANSACTION_getAiProperty = ::android::IBinder::FIRST_CALL_TRANSACTION + 8,
        TRANSACTION_setAiSubscribe = ::android::IBinder::FIRST_CALL_TRANSACTION + 9,
        TRANSACTION_getAiSubscribe = ::android::IBinder::FIRST_CALL_TRANSACTION + 10,
        TRANSACTION_grabFrame = ::android::IBinder::FIRST_CALL_TRANSACTION + 11,
        TRANSACTION_sendDoa = ::android::IBinder::FIRST_CALL_TRANSACTION + 12,
        TRANSACTION_setAutoFraming = ::android::IBinder::FIRST_CALL_TRANSACTION + 13,
        TRANSACTION_getAutoFraming = ::android::IBinder::FIRST_CALL_TRANSACTION + 14,
        TRANSACTION_setZoomMode = ::android::IBinder::FIRST_CALL_TRANSACTION + 15,
        TRANSACTION_getZoomMode = ::android::IBinder::FIRST_CALL_TRANSACTION + 16,
    };

    BnLumacast();

    ::android::status_t onTransact(uint32_t code, const ::android::Parcel& data,
                                   ::android::Parcel* reply, uint32_t flags = 0) override;
};

}  // namespace lumacast
}  // namespace kora
