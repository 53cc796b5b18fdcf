#define LOG_TAG "CameraMotor-GPIO"

#include "motor/MotorBirch.h"

#include <log/log.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <vector>

#include "motor/UpgradeProgress.h"
#include "motor/lowlevel/FileUtil.h"
#include "motor/lowlevel/GpioControl.h"
#include "motor/lowlevel/MotorResult.h"

namespace android {
namespace lumacast {

namespace {

constexpr const char* kBusPath = "/dev/i2c-2";
constexpr int kMcuAddr = 0x42;

constexpr unsigned char kVersionReg = 0x10;
constexpr int kUpgradeReg = 0x20;
constexpr unsigned char kAckReg = 0x21;
constexpr unsigned char kStatusReg = 0x30;

constexpr unsigned char kFrameHead = 0x55;
// Head, two length bytes and the kid command before the payload; CRC-32 after it.
constexpr int kFrameOverhead = 8;
constexpr int kPackageSize = 1024;
constexpr int kAckLen = 9;
constexpr int kStatusLen = 8;
constexpr int kVersionLen = 9;
constexpr int kVersionTextLen = 20;

constexpr int kPackageWriteAttempts = 5;
constexpr int kStatusPolls = 50;
constexpr unsigned int kStepPauseUs = 100000;
constexpr unsigned int kRetryPauseUs = 5000;

constexpr const char* kVersionPrefix = "MOT-QN42R07-ZT3W";

uint32_t readLe32(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

void writeLe32(unsigned char* p, uint32_t v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
    p[2] = static_cast<unsigned char>(v >> 16);
    p[3] = static_cast<unsigned char>(v >> 24);
}

// Fills head, length and kid around a payload already at frame + 4 and appends the CRC of
// kid and payload; returns the CRC.
uint32_t seal_frame(unsigned char* frame, MCU_UPGRADE_KIDCMD kid, int payloadLen) {
    const int length = 1 + payloadLen + 4;
    frame[0] = kFrameHead;
    frame[1] = static_cast<unsigned char>(length);
    frame[2] = static_cast<unsigned char>(length >> 8);
    frame[3] = kid;
    const uint32_t crc = get_crc32(0, frame + 3, static_cast<uint32_t>(1 + payloadLen));
    writeLe32(frame + 4 + payloadLen, crc);
    return crc;
}

// The version text is per thread, so concurrent binder calls never share a buffer that is
// being filled.
thread_local char sVersion[kVersionTextLen];

const char* const kUpgradeStatusText[] = {
        "func=%s,do not update",
        "func=%s,update success",
        "func=%s,update filesize err",
        "func=%s,update crc err",
};

}  // namespace

void upgrade_status_print(unsigned char status) {
    const char* format = status < sizeof(kUpgradeStatusText) / sizeof(kUpgradeStatusText[0])
                                 ? kUpgradeStatusText[status]
                                 : "func=%s,update unknow err";
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, format, __func__);
}

MotorBirch::MotorBirch() {
    mDevPath = kBusPath;
    mWriteAddr = kMcuAddr;
    mReadAddr = kMcuAddr;
}

int MotorBirch::motor_down() { return motor_gpio_down(); }

int MotorBirch::motor_up() { return motor_gpio_up(); }

int MotorBirch::get_motor_status() { return motor_gpio_get_rise_status(); }

int MotorBirch::get_rotate_time() { return 0; }

int MotorBirch::motor_mcu_upgrade(std::string path) {
    UpgradeProgress::begin();
    const int result = mcu_upgrade_gpio(path.c_str());
    UpgradeProgress::end(result);
    return result;
}

int MotorBirch::get_switch_status() { return mtk_get_switch_status(); }

const char* MotorBirch::get_mcu_version() {
    memset(sVersion, 0, sizeof(sVersion));
    unsigned char data[kVersionLen] = {};
    if (motor_iic_read(kVersionReg, data, kVersionLen) != MOTOR_OK) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, iic_read fail", __func__);
        return sVersion;
    }
    if (data[0] != kFrameHead) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, data[0] = 0x%x", __func__,
                            data[0]);
        return sVersion;
    }
    const uint32_t crc = get_crc32(0, data + 3, 2);
    const uint32_t received = readLe32(data + 5);
    if (crc != received) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "fun = %s, crc error, ori_crc = %x, crc = %x", __func__, received, crc);
        return sVersion;
    }
    const unsigned int version = data[3] | (data[4] << 8);
    // Three decimal digits are all the text has room for; a larger number would turn into
    // bytes that are not digits (nor valid text for the binder reply).
    if (version > 999) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, version %u out of range",
                            __func__, version);
        return sVersion;
    }
    snprintf(sVersion, sizeof(sVersion), "%s%c%c%c", kVersionPrefix, '0' + version / 100,
             '0' + (version % 100) / 10, '0' + version % 10);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, version = %s", __func__, sVersion);
    return sVersion;
}

int MotorBirch::write_frame(MCU_UPGRADE_KIDCMD kid, const unsigned char* payload, int len) {
    std::vector<unsigned char> frame(static_cast<size_t>(len + kFrameOverhead));
    if (len > 0) memcpy(frame.data() + 4, payload, static_cast<size_t>(len));
    seal_frame(frame.data(), kid, len);
    return motor_iic_write_data(kUpgradeReg, frame.data(), static_cast<int>(frame.size()));
}

int MotorBirch::mcu_upgrade_gpio(const char* path) {
    if (path == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, upgrade path is NULL", __func__);
        return MOTOR_ERR_DEVICE;
    }
    PACKAGE_INFO info;
    info.totalsize = static_cast<uint16_t>(get_file_size(path));
    info.totalpackage = static_cast<uint16_t>(info.totalsize / kPackageSize +
                                              (info.totalsize % kPackageSize != 0 ? 1 : 0));
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "path : %s, totalsize : %d, totalpackage : %d",
                        path, info.totalsize, info.totalpackage);
    UpgradeProgress::setPackages(info.totalpackage);

    if (send_upgrade_request() != MOTOR_OK) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, send_upgrade_request fail",
                            __func__);
        return MOTOR_ERR_DEVICE;
    }
    if (send_package_info(&info) != MOTOR_OK) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, send_package_info fail",
                            __func__);
        return MOTOR_ERR_DEVICE;
    }
    if (send_package(path, &info) != MOTOR_OK) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, send_package fail", __func__);
        return MOTOR_ERR_DEVICE;
    }
    usleep(kStepPauseUs);
    if (send_finish() != MOTOR_OK) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, send_finish fail", __func__);
        return MOTOR_ERR_DEVICE;
    }
    if (get_cmd_receive_status(MCU_UPGRADE_KIDCMD_SEND_OVER) != MOTOR_OK) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "func=%s, get_cmd_receive_status MCU_UPGRADE_KIDCMD_SEND_OVER fail",
                            __func__);
        return MOTOR_ERR_DEVICE;
    }
    // The final status is for the log only: the image is in once the finish is acknowledged.
    check_upgrade_status();
    return MOTOR_OK;
}

int MotorBirch::send_upgrade_request() {
    unsigned char frame[kFrameOverhead];
    const uint32_t crc = seal_frame(frame, MCU_UPGRADE_KIDCMD_REQUEST, 0);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, get_crc32 = 0x%x", __func__, crc);
    const int ret = motor_iic_write_data(kUpgradeReg, frame, kFrameOverhead);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, iic_write ret = 0x%x", __func__, ret);
    if (ret != MOTOR_OK) return ret;
    if (get_cmd_receive_status(MCU_UPGRADE_KIDCMD_REQUEST) != MOTOR_OK) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "func=%s, get_cmd_receive_status fail",
                            __func__);
        return MOTOR_ERR_DEVICE;
    }
    return MOTOR_OK;
}

int MotorBirch::send_package_info(PACKAGE_INFO* info) {
    const unsigned char payload[4] = {
            static_cast<unsigned char>(info->totalsize),
            static_cast<unsigned char>(info->totalsize >> 8),
            static_cast<unsigned char>(info->totalpackage),
            static_cast<unsigned char>(info->totalpackage >> 8),
    };
    usleep(kStepPauseUs);
    const int ret = write_frame(MCU_UPGRADE_KIDCMD_PACKAGE_INFO, payload, sizeof(payload));
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, iic_write ret = 0x%x", __func__, ret);
    if (ret != MOTOR_OK) return ret;
    if (get_cmd_receive_status(MCU_UPGRADE_KIDCMD_PACKAGE_INFO) != MOTOR_OK) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "func=%s, get_cmd_receive_status fail",
                            __func__);
        return MOTOR_ERR_DEVICE;
    }
    return MOTOR_OK;
}

int MotorBirch::send_package(const char* path, PACKAGE_INFO* info) {
    FILE* fp = fopen(path, "rbe");
    if (fp == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, open %s fail", __func__, path);
        return MOTOR_ERR_DEVICE;
    }
    std::vector<unsigned char> frame(kPackageSize + kFrameOverhead);
    int result = MOTOR_ERR_DEVICE;
    for (int pkg = 0; pkg < info->totalpackage; ++pkg) {
        const bool last = pkg == info->totalpackage - 1;
        const int remainder = info->totalsize % kPackageSize;
        const size_t want = (last && remainder != 0) ? remainder : kPackageSize;
        const int n = static_cast<int>(fread(frame.data() + 4, 1, want, fp));
        if (n == 0) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "func = %s, fread file size with 0.",
                                __func__);
            fclose(fp);
            return result;
        }
        seal_frame(frame.data(), MCU_UPGRADE_KIDCMD_PACKAGE, n);
        UpgradeProgress::setPackage(pkg + 1);

        int ret = MOTOR_ERR_DEVICE;
        for (int attempt = 0; attempt < kPackageWriteAttempts; ++attempt) {
            __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, cur_send_package_size = %d",
                                __func__, n);
            ret = motor_iic_write_data(kUpgradeReg, frame.data(), n + kFrameOverhead);
            __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, iic_write ret = %d", __func__,
                                ret);
            if (ret == MOTOR_OK) break;
            usleep(kRetryPauseUs);
        }
        if (ret != MOTOR_OK) {
            // The frames carry no package number: the MCU only counts what arrives, so a
            // package that never got through cannot be skipped. Whether the bus is gone
            // (4096) or refuses the transfer, close the transfer and give up.
            const int stop = write_frame(MCU_UPGRADE_KIDCMD_SEND_OVER, nullptr, 0);
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                "fun = %s, iic_write stop_package ret = %d", "send_finish", stop);
            fclose(fp);
            return MOTOR_ERR_DEVICE;
        }
        usleep(kStepPauseUs);
        // A refused acknowledgement is logged but does not stop the transfer.
        get_cmd_receive_status(MCU_UPGRADE_KIDCMD_PACKAGE);
        result = MOTOR_OK;
    }
    fclose(fp);
    return result;
}

int MotorBirch::send_finish() {
    const int ret = write_frame(MCU_UPGRADE_KIDCMD_SEND_OVER, nullptr, 0);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, iic_write ret = 0x%x", __func__, ret);
    return ret;
}

int MotorBirch::get_cmd_receive_status(MCU_UPGRADE_KIDCMD kid) {
    unsigned char data[kAckLen] = {};
    if (motor_iic_read(kAckReg, data, kAckLen) != MOTOR_OK) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "func=%s,iic read fail\n", __func__);
        return MOTOR_ERR_DEVICE;
    }
    if (data[0] != kFrameHead) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "func=%s,data head=%x err", __func__,
                            data[0]);
        return MOTOR_ERR_DEVICE;
    }
    if (data[3] != kid) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "func=%s,receive_kidcmd=%x, read_kidcmd=%x \n", __func__, kid, data[3]);
        return MOTOR_ERR_DEVICE;
    }
    const uint32_t crc = get_crc32(0, data + 3, 2);
    const uint32_t received = readLe32(data + 5);
    if (crc != received) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "func=%s,ori_crc=%x,crc=%x ", __func__,
                            received, crc);
        return MOTOR_ERR_DEVICE;
    }
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "func=%s, read_status=%d\n", __func__, data[4]);
    return data[4] == 0 ? MOTOR_OK : MOTOR_ERR_DEVICE;
}

int MotorBirch::get_upgrade_status(unsigned char* status) {
    unsigned char data[kStatusLen] = {};
    if (motor_iic_read(kStatusReg, data, kStatusLen) != MOTOR_OK) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "func=%s,iic read fail", __func__);
        return MOTOR_ERR_DEVICE;
    }
    if (data[0] != kFrameHead) {
        *status = 0;
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "func=%s,data_head=%x,err", __func__,
                            data[0]);
        return MOTOR_ERR_DEVICE;
    }
    const uint32_t crc = get_crc32(0, data + 3, 1);
    const uint32_t received = readLe32(data + 4);
    if (crc != received) {
        *status = 0;
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "func=%s,ori_crc=%x,crc=%x,err", __func__,
                            received, crc);
        return MOTOR_ERR_DEVICE;
    }
    *status = data[3];
    return MOTOR_OK;
}

void MotorBirch::check_upgrade_status() {
    for (int wait_cnt = kStatusPolls - 1; wait_cnt >= 0; --wait_cnt) {
        __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, wait_cnt = %d", __func__,
                            wait_cnt);
        unsigned char status = 0;
        if (get_upgrade_status(&status) != MOTOR_OK) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "func=%s,get upgrade status fail",
                                __func__);
            return;
        }
        upgrade_status_print(status);
        if (status == 1) return;
        if (wait_cnt > 0) usleep(kStepPauseUs);
    }
}

}  // namespace lumacast
}  // namespace android
