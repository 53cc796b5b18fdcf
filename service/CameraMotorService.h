#pragma once

#include <binder/Status.h>
#include <utils/Errors.h>
#include <utils/String16.h>
#include <utils/Vector.h>

#include <string>

#include "aidl/BnKCameraMotor.h"

namespace android {
namespace lumacast {

// "cameramotorservice": maps each binder call onto the board model's driver, chosen by the
// first set_client_type that names a known model; fixed defaults until then.
class CameraMotorService : public kora::lumacast::BnKCameraMotor {
  public:
    CameraMotorService();
    ~CameraMotorService() override;

    binder::Status set_client_type(const std::string& type) override;
    binder::Status motor_down(int32_t* result) override;
    binder::Status motor_up(int32_t* result) override;
    binder::Status get_motor_status(int32_t* status) override;
    binder::Status get_rise_time(int32_t* time) override;
    binder::Status get_switch_status(bool* on) override;
    binder::Status is_support_motor(bool* supported) override;
    binder::Status set_status(bool status) override;
    binder::Status get_status(bool* status) override;
    binder::Status get_mcu_version(std::string* version) override;
    binder::Status mcu_upgrade(const std::string& path, int32_t* result) override;

    // dumpsys: the selected board model and the persisted flag; touches no hardware.
    status_t dump(int fd, const Vector<String16>& args) override;
};

}  // namespace lumacast
}  // namespace android
