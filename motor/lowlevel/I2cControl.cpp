#define LOG_TAG "CameraMotor-I2C"

#include "motor/lowlevel/I2cControl.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <log/log.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "motor/lowlevel/MotorResult.h"

namespace android {
namespace lumacast {

namespace {

// i2c-dev refuses messages longer than this; checking first keeps a bad length from being
// truncated into the 16-bit message length.
constexpr int kMaxMessageLen = 8192;

int open_device(const char* path) {
    const int fd = open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, can't open %s, %s", __func__,
                            path, strerror(errno));
    }
    return fd;
}

int transfer(int fd, struct i2c_msg* msgs, int count) {
    struct i2c_rdwr_ioctl_data request;
    request.msgs = msgs;
    request.nmsgs = static_cast<__u32>(count);
    return ioctl(fd, I2C_RDWR, &request);
}

void logWriteRefused(const char* func) {
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, I2C_RDWR is failed(error: %s)", func,
                        strerror(errno));
}

}  // namespace

int set_status(int fd, int addr, unsigned char reg, unsigned char value) {
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s start", __func__);
    unsigned char* buf = static_cast<unsigned char*>(malloc(2));
    if (buf == nullptr) {
        __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, malloc is error", __func__);
        return MOTOR_ERR_NO_MEMORY;
    }
    buf[0] = reg;
    buf[1] = value;
    struct i2c_msg msg;
    msg.addr = static_cast<__u16>(addr);
    msg.flags = 0;
    msg.len = 2;
    msg.buf = buf;
    const int ret = transfer(fd, &msg, 1);
    if (ret < 0) logWriteRefused(__func__);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, I2C_RDWR ret = %d, state = 0x%x end",
                        __func__, ret, value);
    free(buf);
    return ret < 0 ? ret : MOTOR_OK;
}

int write_data(int fd, int addr, unsigned char reg, const void* data, int len) {
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s start", __func__);
    if (len < 0 || len >= kMaxMessageLen || (len > 0 && data == nullptr)) {
        // Refused as the kernel would refuse it, without building a message.
        errno = EINVAL;
        logWriteRefused(__func__);
        return -1;
    }
    unsigned char* buf = static_cast<unsigned char*>(malloc(static_cast<size_t>(len) + 1));
    if (buf == nullptr) {
        __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, malloc is error", __func__);
        return MOTOR_ERR_NO_MEMORY;
    }
    buf[0] = reg;
    if (len > 0) memcpy(buf + 1, data, static_cast<size_t>(len));
    struct i2c_msg msg;
    msg.addr = static_cast<__u16>(addr);
    msg.flags = 0;
    msg.len = static_cast<__u16>(len + 1);
    msg.buf = buf;
    const int ret = transfer(fd, &msg, 1);
    if (ret < 0) logWriteRefused(__func__);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, I2C_RDWR ret = %dend", __func__, ret);
    free(buf);
    return ret < 0 ? ret : MOTOR_OK;
}

int query_status(int fd, int write_addr, int read_addr, unsigned char reg, unsigned char* buf,
                 int len) {
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, start", __func__);
    int ret = -1;
    if (buf == nullptr || len <= 0 || len > kMaxMessageLen) {
        errno = EINVAL;
    } else {
        struct i2c_msg msgs[2];
        msgs[0].addr = static_cast<__u16>(write_addr);
        msgs[0].flags = 0;
        msgs[0].len = 1;
        msgs[0].buf = &reg;
        msgs[1].addr = static_cast<__u16>(read_addr);
        msgs[1].flags = I2C_M_RD;
        msgs[1].len = static_cast<__u16>(len);
        msgs[1].buf = buf;
        ret = transfer(fd, msgs, 2);
    }
    if (ret < 0) {
        const int err = errno;
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "fun = %s, I2C_RDWR is failed(%d, error:%d, %s)", __func__, ret, err,
                            strerror(err));
        return ret;
    }
    return MOTOR_OK;
}

int iic_write_status(const char* path, int addr, int reg, unsigned char value) {
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s start", __func__);
    const int fd = open_device(path);
    if (fd < 0) return MOTOR_ERR_DEVICE;
    const int ret = set_status(fd, addr, static_cast<unsigned char>(reg & 0xff), value);
    close(fd);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, I2C_RDWR ret = %d end", __func__,
                        ret);
    return ret;
}

int iic_write_data(const char* path, int addr, int reg, const void* data, int len) {
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s start", __func__);
    const int fd = open_device(path);
    if (fd < 0) return MOTOR_ERR_DEVICE;
    const int ret = write_data(fd, addr, static_cast<unsigned char>(reg & 0xff), data, len);
    close(fd);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, I2C_RDWR ret = %d end", __func__,
                        ret);
    return ret;
}

int iic_read(const char* path, int write_addr, int read_addr, unsigned char reg, unsigned char* buf,
             int len) {
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s start", __func__);
    const int fd = open_device(path);
    if (fd < 0) return MOTOR_ERR_DEVICE;
    const int ret = query_status(fd, write_addr, read_addr, reg, buf, len);
    close(fd);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, query_status ret = %d end", __func__,
                        ret);
    return ret;
}

}  // namespace lumacast
}  // namespace android
