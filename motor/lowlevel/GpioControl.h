#pragma once

#include "motor/lowlevel/MotorResult.h"

namespace android {
namespace lumacast {

// Motor lines as the platform exports them; the daemon never exports lines or sets their
// direction, so it assumes these value files exist and reports 256 when one does not.
#define GPIO_MOTOR_UP_PATH "/sys/class/gpio/gpio146/value"
#define GPIO_MOTOR_DOWN_PATH "/sys/class/gpio/gpio147/value"
#define GPIO_RISE_STATUS_FIRST_PATH "/sys/class/gpio/gpio151/value"
#define GPIO_RISE_STATUS_SECOND_PATH "/sys/class/gpio/gpio150/value"
#define GPIO_SWITCH_PATH "/sys/class/gpio/gpio152/value"

// Length of the active-low pulse that moves the camera.
constexpr unsigned int MOTOR_PULSE_US = 200000;

int get_gpio_value(const char* path, unsigned char* value);
int set_gpio_value(const char* path, char value);

void motor_gpio_get_switch_status(int* status);
int motor_gpio_down();
int motor_gpio_up();
int motor_gpio_get_rise_status();

}  // namespace lumacast
}  // namespace android
