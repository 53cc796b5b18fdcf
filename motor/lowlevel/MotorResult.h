#pragma once

namespace android {
namespace lumacast {

// Result codes of the motor side; a refused I2C transfer is reported by its negative
// I2C_RDWR result instead.
constexpr int MOTOR_OK = 0;
constexpr int MOTOR_ERR_GPIO_OPEN = 256;
constexpr int MOTOR_ERR_NO_MEMORY = 257;
constexpr int MOTOR_ERR_DEVICE = 4096;

}  // namespace lumacast
}  // namespace android
