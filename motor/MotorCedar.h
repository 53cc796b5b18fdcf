#pragma once

#include <stdint.h>

#include <string>

#include "motor/IMotor.h"

namespace android {
namespace lumacast {

struct MCU_OTA_PACKAGE_INFO {
    uint32_t totalsize;
    uint32_t totalpackage;
    uint32_t lastpkgsize;  // logged only
};

// The MCU runs the motor: commands, state and rise time are registers on I2C.
class MotorCedar : public IMotor {
  public:
    MotorCedar();

    int motor_down() override;
    int motor_up() override;
    int get_motor_status() override;
    int get_rotate_time() override;
    int motor_mcu_upgrade(std::string path) override;
    const char* get_mcu_version() override;
    int get_switch_status() override;

    int mcu_upgrade_iic(const char* path);
    int send_upgrade_request();
    int send_package_info(MCU_OTA_PACKAGE_INFO* info);
    int send_package(const char* path, MCU_OTA_PACKAGE_INFO* info);
    int send_finish();
};

}  // namespace lumacast
}  // namespace android
