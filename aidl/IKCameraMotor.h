#pragma once

#include <binder/IBinder.h>
#include <binder/IInterface.h>
#include <binder/Status.h>
#include <stdint.h>

#include <string>

namespace kora {
namespace lumacast {

// The motor service "cameramotorservice": board model, pop-up motor, switch, persisted
// status flag and MCU firmware.
class IKCameraMotor : public ::android::IInterface {
  public:
    // Constant data: valid before any static constructor runs, in this file or another.
    static const ::android::String16& descriptor;

    IKCameraMotor();
    ~IKCameraMotor() override;

    virtual const ::android::String16& getInterfaceDescriptor() const;
    virtual ::android::binder::Status set_client_type(const std::string& type) = 0;
    virtual ::android::binder::Status motor_down(int32_t* result) = 0;
    virtual ::android::binder::Status motor_up(int32_t* result) = 0;
    virtual ::android::binder::Status get_motor_status(int32_t* status) = 0;
    virtual ::android::binder::Status get_rise_time(int32_t* time) = 0;
    virtual ::android::binder::Status get_switch_status(bool* on) = 0;
    virtual ::android::binder::Status is_support_motor(bool* supported) = 0;
    virtual ::android::binder::Status set_status(bool status) = 0;
    virtual ::android::binder::Status get_status(bool* status) = 0;
    virtual ::android::binder::Status get_mcu_version(std::string* version) = 0;
    virtual ::android::binder::Status mcu_upgrade(const std::string& path, int32_t* result) = 0;
};

}  // namespace lumacast
}  // namespace kora
