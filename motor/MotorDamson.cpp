#define LOG_TAG "CameraMotor-Damson"

#include "motor/MotorDamson.h"

#include <log/log.h>
#include <string.h>

#include "motor/lowlevel/MotorResult.h"
#include "motor/lowlevel/VendorGpio.h"

namespace android {
namespace lumacast {

namespace {

constexpr const char* kBusPath = "/dev/i2c-1";
constexpr int kMcuAddr = 0x28;
constexpr const char* kSwitchPin = "PIN_CAM_DET_SOC";

}  // namespace

MotorDamson::MotorDamson() {
    mDevPath = kBusPath;
    mWriteAddr = kMcuAddr;
    mReadAddr = kMcuAddr;
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "func=%s", "MotorDamson");
}

int MotorDamson::get_switch_status() {
    GPIO_PIN_VALUE pin;
    memset(&pin, 0, sizeof(pin));
    strncpy(pin.name, kSwitchPin, sizeof(pin.name) - 1);
    const int ret = _GPIOExecuteCommand(static_cast<int>(VENUS_GPIO_IOC_READ_PIN), &pin);
    const int value = ret == MOTOR_OK ? pin.value : 0;
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "func=%s, ret = %d, value = %d", __func__, ret,
                        value);
    return value;
}

}  // namespace lumacast
}  // namespace android
