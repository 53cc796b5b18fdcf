#define LOG_TAG "CameraMotor-GPIO"

#include "motor/lowlevel/GpioControl.h"

#include <errno.h>
#include <log/log.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

namespace android {
namespace lumacast {

namespace {

// "wb+" because sysfs value files ignore truncation and the same mode serves reads and
// writes; "e" keeps the descriptor out of children that other threads may fork.
constexpr const char* kValueFileMode = "wb+e";

FILE* openValueFile(const char* func, const char* path) {
    FILE* fp = fopen(path, kValueFileMode);
    if (fp == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, Cannot open %s (error : %s)",
                            func, path, strerror(errno));
    }
    return fp;
}

}  // namespace

int get_gpio_value(const char* path, unsigned char* value) {
    FILE* fp = openValueFile(__func__, path);
    if (fp == nullptr) return MOTOR_ERR_GPIO_OPEN;
    fseek(fp, 0, SEEK_SET);
    char level = '0';
    const size_t ret = fread(&level, 1, 1, fp);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, path = %s, ret = %d, gpio_value = %c",
                        __func__, path, static_cast<int>(ret), level);
    *value = static_cast<unsigned char>(level);
    fclose(fp);
    return MOTOR_OK;
}

int set_gpio_value(const char* path, char value) {
    FILE* fp = openValueFile(__func__, path);
    if (fp == nullptr) return MOTOR_ERR_GPIO_OPEN;
    fseek(fp, 0, SEEK_SET);
    const size_t ret = fwrite(&value, 1, 1, fp);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, path = %s write ret = %d", __func__,
                        path, static_cast<int>(ret));
    fclose(fp);
    return static_cast<int>(ret);
}

void motor_gpio_get_switch_status(int* status) {
    unsigned char level = '0';
    if (get_gpio_value(GPIO_SWITCH_PATH, &level) != MOTOR_OK) {
        *status = 2;
        return;
    }
    if (level == '1') {
        *status = 1;
    } else if (level == '0') {
        *status = 0;
    } else {
        *status = 2;
    }
}

// Both lines idle high; a move is a low pulse on one while the other is held high. A failed
// write does not cut the pulse short, so a line is never left low.
int motor_gpio_down() {
    set_gpio_value(GPIO_MOTOR_UP_PATH, '1');
    set_gpio_value(GPIO_MOTOR_DOWN_PATH, '0');
    usleep(MOTOR_PULSE_US);
    set_gpio_value(GPIO_MOTOR_DOWN_PATH, '1');
    return MOTOR_OK;
}

int motor_gpio_up() {
    set_gpio_value(GPIO_MOTOR_UP_PATH, '0');
    set_gpio_value(GPIO_MOTOR_DOWN_PATH, '1');
    usleep(MOTOR_PULSE_US);
    set_gpio_value(GPIO_MOTOR_UP_PATH, '1');
    return MOTOR_OK;
}

int motor_gpio_get_rise_status() {
    unsigned char first = '0';
    unsigned char second = '0';
    if (get_gpio_value(GPIO_RISE_STATUS_FIRST_PATH, &first) != MOTOR_OK) return 4;
    if (get_gpio_value(GPIO_RISE_STATUS_SECOND_PATH, &second) != MOTOR_OK) return 4;
    if (first == '0') return 0;
    if (second == '0') return 3;
    return 4;
}

}  // namespace lumacast
}  // namespace android
