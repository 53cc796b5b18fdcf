#pragma once

#include <binder/IInterface.h>
#include <binder/Parcel.h>

#include "aidl/IKCameraMotor.h"

namespace kora {
namespace lumacast {

// Serving side of IKCameraMotor: reads each request, calls the service, writes the reply.
class BnKCameraMotor : public ::android::BnInterface<IKCameraMotor> {
  public:
    enum : uint32_t {
        TRANSACTION_set_client_type = ::android::IBinder::FIRST_CALL_TRANSACTION + 0,
        TRANSACTION_motor_down = ::android::IBinder::FIRST_CALL_TRANSACTION + 1,
        TRANSACTION_motor_up = ::android::IBinder::FIRST_CALL_TRANSACTION + 2,
        TRANSACTION_get_motor_status = ::android::IBinder::FIRST_CALL_TRANSACTION + 3,
        TRANSACTION_get_rise_time = ::android::IBinder::FIRST_CALL_TRANSACTION + 4,
        TRANSACTION_get_switch_status = ::android::IBinder::FIRST_CALL_TRANSACTION + 5,
        TRANSACTION_is_support_motor = ::android::IBinder::FIRST_CALL_TRANSACTION + 6,
        TRANSACTION_set_status = ::android::IBinder::FIRST_CALL_TRANSACTION + 7,
        TRANSACTION_get_status = ::android::IBinder::FIRST_CALL_TRANSACTION + 8,
        TRANSACTION_get_mcu_version = ::android::IBinder::FIRST_CALL_TRANSACTION + 9,
        TRANSACTION_mcu_upgrade = ::android::IBinder::FIRST_CALL_TRANSACTION + 10,
    };

    BnKCameraMotor();

    ::android::status_t onTransact(uint32_t code, const ::android::Parcel& data,
                                   ::android::Parcel* reply, uint32_t flags = 0) override;
};

}  // namespace lumacast
}  // namespace kora
