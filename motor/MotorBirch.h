#pragma once

#include <stdint.h>

#include <string>

#include "motor/IMotor.h"

namespace android {
namespace lumacast {

// Kid commands of the upgrade frames; the MCU echoes them in its acknowledgements.
enum MCU_UPGRADE_KIDCMD : unsigned char {
    MCU_UPGRADE_KIDCMD_REQUEST = 1,
    MCU_UPGRADE_KIDCMD_PACKAGE_INFO = 2,
    MCU_UPGRADE_KIDCMD_PACKAGE = 3,
    MCU_UPGRADE_KIDCMD_SEND_OVER = 4,
};

// Sizes travel in 16 bits: images of 64 KiB or more cannot be described.
struct PACKAGE_INFO {
    uint16_t totalsize;
    uint16_t totalpackage;
};

void upgrade_status_print(unsigned char status);

// GPIO-driven motor; the MCU on I2C only reports its version and takes firmware.
class MotorBirch : public IMotor {
  public:
    MotorBirch();

    int motor_down() override;
    int motor_up() override;
    int get_motor_status() override;
    int get_rotate_time() override;
    int motor_mcu_upgrade(std::string path) override;
    const char* get_mcu_version() override;
    int get_switch_status() override;

    int mcu_upgrade_gpio(const char* path);
    int send_upgrade_request();
    int send_package_info(PACKAGE_INFO* info);
    int send_package(const char* path, PACKAGE_INFO* info);
    int send_finish();
    int get_cmd_receive_status(MCU_UPGRADE_KIDCMD kid);
    int get_upgrade_status(unsigned char* status);
    void check_upgrade_status();

  private:
    int write_frame(MCU_UPGRADE_KIDCMD kid, const unsigned char* payload, int len);
};

}  // namespace lumacast
}  // namespace android
