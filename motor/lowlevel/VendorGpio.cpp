#define LOG_TAG "CameraMotor-Damson"

#include "motor/lowlevel/VendorGpio.h"

#include <errno.h>
#include <fcntl.h>
#include <log/log.h>
#include <string.h>
#include <unistd.h>

#include "motor/lowlevel/MotorResult.h"

namespace android {
namespace lumacast {

namespace {

int _open_GPIO_Device() {
    const int fd = open(VENUS_GPIO_DEVICE, O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "func = %s, gpio fd open fail!! errno = %d, %s\n", __func__, errno,
                            strerror(errno));
    }
    return fd;
}

}  // namespace

int _GPIOExecuteCommand(int request, void* arg) {
    const int fd = _open_GPIO_Device();
    if (fd < 0) return MOTOR_ERR_DEVICE;
    // Request codes are 32-bit; keep the high bit from spreading into a wider argument.
    const int ret = ioctl(fd, static_cast<unsigned int>(request), arg);
    if (ret < 0) {
        const int err = errno;
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "func = %s, ioctl fail!! errno = %d, %s\n",
                            __func__, err, strerror(err));
        close(fd);
        return MOTOR_ERR_DEVICE;
    }
    close(fd);
    return MOTOR_OK;
}

}  // namespace lumacast
}  // namespace android
