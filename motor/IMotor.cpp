#define LOG_TAG "CameraMotor-IMotor"

#include "motor/IMotor.h"

#include <log/log.h>

#include <mutex>

#include "motor/MotorBirch.h"
#include "motor/MotorCedar.h"
#include "motor/MotorDamson.h"
#include "motor/lowlevel/GpioControl.h"
#include "motor/lowlevel/I2cControl.h"

namespace android {
namespace lumacast {

IMotor* IMotor::sMotor = nullptr;
std::atomic<bool> IMotor::sSupportMotor{false};

namespace {

// Binder threads may select or release concurrently; one driver must come out of it.
std::mutex& selectionMutex() {
    static std::mutex m;
    return m;
}

}  // namespace

IMotor* IMotor::getInstance(std::string type) {
    std::lock_guard<std::mutex> lock(selectionMutex());
    if (sMotor != nullptr) return sMotor;
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "func=%s, type = %s", __func__, type.c_str());
    if (type.empty()) return nullptr;
    IMotor* motor = nullptr;
    if (type.find("MT9652-BIRCH") != std::string::npos ||
        type.find("MT9652-ELM") != std::string::npos) {
        motor = new MotorBirch();
    } else if (type.find("MT9652-CEDAR") != std::string::npos) {
        motor = new MotorCedar();
    } else if (type.find("RTD51M-FIR") != std::string::npos) {
        motor = new MotorDamson();
    } else {
        return nullptr;
    }
    sSupportMotor = true;
    sMotor = motor;
    return motor;
}

bool IMotor::is_support_motor() { return sSupportMotor; }

void IMotor::releaseInstance(IMotor* motor) {
    if (motor == nullptr) return;
    {
        std::lock_guard<std::mutex> lock(selectionMutex());
        if (sMotor == motor) sMotor = nullptr;
    }
    delete motor;
}

int IMotor::mtk_get_switch_status() {
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "func=%s", __func__);
    int status = 0;
    motor_gpio_get_switch_status(&status);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "func=%s, status = %d", __func__, status);
    return status;
}

int IMotor::motor_iic_write_status(int reg, unsigned char value) {
    return iic_write_status(mDevPath, mWriteAddr, reg, value);
}

int IMotor::motor_iic_write_data(int reg, unsigned char* data, int len) {
    return iic_write_data(mDevPath, mWriteAddr, reg, data, len);
}

int IMotor::motor_iic_read(unsigned char reg, unsigned char* buf, int len) {
    return iic_read(mDevPath, mWriteAddr, mReadAddr, reg, buf, len);
}

}  // namespace lumacast
}  // namespace android
