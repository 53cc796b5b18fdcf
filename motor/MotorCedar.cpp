#define LOG_TAG "CameraMotor-I2C"

#include "motor/MotorCedar.h"

#include <log/log.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "motor/UpgradeProgress.h"
#include "motor/lowlevel/FileUtil.h"
#include "motor/lowlevel/MotorResult.h"

namespace android {
namespace lumacast {

namespace {

constexpr const char* kBusPath = "/dev/i2c-2";
constexpr int kMcuAddr = 0x28;

constexpr unsigned char kVersionReg = 0x16;
constexpr unsigned char kStateReg = 0x21;
constexpr unsigned char kRiseTimeReg = 0x22;
constexpr int kCommandReg = 0x23;
constexpr unsigned char kCommandDown = 1;
constexpr unsigned char kCommandUp = 2;

constexpr int kRequestReg = 0xE0;
constexpr unsigned char kRequestAnswerReg = 0xE1;
constexpr int kInfoReg = 0xE2;
constexpr unsigned char kInfoAnswerReg = 0xE3;
constexpr int kPackageReg = 0xE4;
constexpr unsigned char kPackageAnswerReg = 0xE5;
constexpr int kFinishReg = 0xE6;
constexpr unsigned char kFinishAnswerReg = 0xE7;

constexpr unsigned char kAccepted = 0x50;
constexpr unsigned char kRequestCode = 0x51;
constexpr uint32_t kPackageSize = 256;
// Length field, data size and package number ahead of the data; CRC-32 after it.
constexpr int kPackageHeader = 8;
constexpr int kCrcLen = 4;
constexpr int kVersionLen = 18;
constexpr int kVersionTextLen = 20;

constexpr int kAttempts = 50;
constexpr unsigned int kReadyPollSeconds = 5;
constexpr unsigned int kPackagePauseUs = 500000;
constexpr unsigned int kRetryPauseUs = 5000;

void writeLe16(unsigned char* p, uint32_t v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
}

void writeLe32(unsigned char* p, uint32_t v) {
    writeLe16(p, v);
    writeLe16(p + 2, v >> 16);
}

// Appends the CRC of everything before it; returns the CRC.
uint32_t seal(unsigned char* frame, int lenBeforeCrc) {
    const uint32_t crc = get_crc32(0, frame, static_cast<uint32_t>(lenBeforeCrc));
    writeLe32(frame + lenBeforeCrc, crc);
    return crc;
}

// Request and finish are the same 7 bytes: length 1, 0x51, CRC.
constexpr int kRequestFrameLen = 7;
uint32_t build_request_frame(unsigned char* frame) {
    writeLe16(frame, 1);
    frame[2] = kRequestCode;
    return seal(frame, 3);
}

// Shared by MotorCedar and MotorDamson and private to each thread, so concurrent binder
// calls never share a buffer that is being filled.
thread_local char sVersion[kVersionTextLen];

}  // namespace

MotorCedar::MotorCedar() {
    mDevPath = kBusPath;
    mWriteAddr = kMcuAddr;
    mReadAddr = kMcuAddr;
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "func=%s", "MotorCedar");
}

int MotorCedar::motor_down() { return motor_iic_write_status(kCommandReg, kCommandDown); }

int MotorCedar::motor_up() { return motor_iic_write_status(kCommandReg, kCommandUp); }

int MotorCedar::get_motor_status() {
    unsigned char state = 0;
    const int ret = motor_iic_read(kStateReg, &state, 1);
    if (ret != MOTOR_OK) return ret;
    switch (state) {
        case 0:
        case 2:
            return 0;
        case 1:
            return 1;
        case 3:
            return 2;
        case 4:
            return 3;
        default:
            return 4;
    }
}

int MotorCedar::get_rotate_time() {
    unsigned char time = 0;
    if (motor_iic_read(kRiseTimeReg, &time, 1) != MOTOR_OK) return 10000;
    return time;
}

int MotorCedar::motor_mcu_upgrade(std::string path) {
    UpgradeProgress::begin();
    const int result = mcu_upgrade_iic(path.c_str());
    UpgradeProgress::end(result);
    return result;
}

const char* MotorCedar::get_mcu_version() {
    memset(sVersion, 0, sizeof(sVersion));
    // A failed read leaves the text empty; the two spare zero bytes always end it.
    motor_iic_read(kVersionReg, reinterpret_cast<unsigned char*>(sVersion), kVersionLen);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s version = %s", __func__, sVersion);
    return sVersion;
}

int MotorCedar::get_switch_status() { return mtk_get_switch_status(); }

int MotorCedar::mcu_upgrade_iic(const char* path) {
    if (path == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, upgrade path is NULL", __func__);
        return MOTOR_ERR_DEVICE;
    }
    MCU_OTA_PACKAGE_INFO info;
    info.totalsize = static_cast<uint32_t>(get_file_size(path));
    info.totalpackage = info.totalsize / kPackageSize + (info.totalsize % kPackageSize ? 1 : 0);
    info.lastpkgsize = info.totalsize % kPackageSize;
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG,
                        "path : %s, totalsize : %d, totalpackage : %d, lastpkgsize : %d", path,
                        static_cast<int>(info.totalsize), static_cast<int>(info.totalpackage),
                        static_cast<int>(info.lastpkgsize));
    UpgradeProgress::setPackages(static_cast<int>(info.totalpackage));
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
    if (send_finish() != MOTOR_OK) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, send_finish fail", __func__);
        return MOTOR_ERR_DEVICE;
    }
    return MOTOR_OK;
}

int MotorCedar::send_upgrade_request() {
    unsigned char frame[kRequestFrameLen];
    const uint32_t crc = build_request_frame(frame);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, get_crc32 = 0x%x", __func__, crc);
    const int ret = motor_iic_write_data(kRequestReg, frame, kRequestFrameLen);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, iic_write ret = 0x%x", __func__, ret);
    if (ret != MOTOR_OK) return ret;
    // The MCU may first have to erase its flash: give it up to 50 polls, 5 s apart.
    for (int i = 0; i < kAttempts; ++i) {
        sleep(kReadyPollSeconds);
        unsigned char answer = 0;
        const int rret = motor_iic_read(kRequestAnswerReg, &answer, 1);
        __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, iic_read ret = %d, resut = 0x%x",
                            __func__, rret, answer);
        if (rret == MOTOR_OK && answer == kAccepted) return MOTOR_OK;
    }
    return MOTOR_ERR_DEVICE;
}

int MotorCedar::send_package_info(MCU_OTA_PACKAGE_INFO* info) {
    unsigned char frame[2 + 8 + kCrcLen];
    writeLe16(frame, 8);
    writeLe32(frame + 2, info->totalsize);
    writeLe32(frame + 6, info->totalpackage);
    seal(frame, 10);
    for (int i = 0; i < kAttempts; ++i) {
        const int ret = motor_iic_write_data(kInfoReg, frame, sizeof(frame));
        __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, iic_write ret = 0x%x", __func__,
                            ret);
        if (ret != MOTOR_OK) continue;
        unsigned char answer = 0;
        const int rret = motor_iic_read(kInfoAnswerReg, &answer, 1);
        __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, iic_read resut = 0x%x", __func__,
                            answer);
        if (rret == MOTOR_OK && answer == kAccepted) return MOTOR_OK;
    }
    return MOTOR_ERR_DEVICE;
}

int MotorCedar::send_package(const char* path, MCU_OTA_PACKAGE_INFO* info) {
    unsigned char* frame =
            static_cast<unsigned char*>(malloc(kPackageHeader + kPackageSize + kCrcLen));
    if (frame == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, send_data malloc fail",
                            __func__);
        return MOTOR_ERR_NO_MEMORY;
    }
    FILE* fp = fopen(path, "rbe");
    if (fp == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "fun = %s, open %s fail", __func__, path);
        free(frame);
        return MOTOR_ERR_DEVICE;
    }
    // One exit from here on, so the buffer and the file are always released.
    int result = MOTOR_ERR_DEVICE;
    uint32_t n =
            info->totalpackage == 0
                    ? 0
                    : static_cast<uint32_t>(fread(frame + kPackageHeader, 1, kPackageSize, fp));
    if (info->totalpackage != 0 && n == 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "func = %s, fread file size with 0.",
                            __func__);
    }
    for (uint32_t k = 1; n > 0; ++k) {
        __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "cur_send_package_index = %d",
                            static_cast<int>(k));
        UpgradeProgress::setPackage(static_cast<int>(k));
        writeLe16(frame, n + 6);
        writeLe16(frame + 2, n);
        writeLe32(frame + 4, k);
        seal(frame, kPackageHeader + static_cast<int>(n));
        const int frameLen = kPackageHeader + static_cast<int>(n) + kCrcLen;

        int ret = MOTOR_OK;
        bool accepted = false;
        for (int i = 0; i < kAttempts && !accepted; ++i) {
            __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, cur_data_size = %d", __func__,
                                static_cast<int>(n + 6));
            ret = motor_iic_write_data(kPackageReg, frame, frameLen);
            __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, iic_write ret = %d", __func__,
                                ret);
            if (ret != MOTOR_OK) {
                usleep(kRetryPauseUs);
                continue;
            }
            usleep(kPackagePauseUs);
            unsigned char answer[5] = {};
            ret = motor_iic_read(kPackageAnswerReg, answer, sizeof(answer));
            __android_log_print(ANDROID_LOG_INFO, LOG_TAG,
                                "fun = %s, iic_read ret = %d, status = 0x%x", __func__, ret,
                                answer[4]);
            if (ret == MOTOR_OK && answer[4] == kAccepted) {
                accepted = true;
            } else {
                usleep(kRetryPauseUs);
            }
        }
        result = ret;
        // Without the bus nothing more can go through; any other refusal moves on to the
        // next package, which the MCU checks by its number.
        if (!accepted && ret == MOTOR_ERR_DEVICE) break;
        if (k >= info->totalpackage) break;
        n = static_cast<uint32_t>(fread(frame + kPackageHeader, 1, kPackageSize, fp));
        if (n == 0) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "func = %s, fread file size with 0.",
                                __func__);
        }
    }
    fclose(fp);
    free(frame);
    return result;
}

int MotorCedar::send_finish() {
    unsigned char frame[kRequestFrameLen];
    build_request_frame(frame);
    int ret = MOTOR_OK;
    for (int i = 0; i < kAttempts; ++i) {
        ret = motor_iic_write_data(kFinishReg, frame, kRequestFrameLen);
        __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "fun = %s, iic_write ret = %d", __func__,
                            ret);
        if (ret != MOTOR_OK) {
            usleep(kRetryPauseUs);
            continue;
        }
        usleep(kRetryPauseUs);
        unsigned char answer[2] = {};
        ret = motor_iic_read(kFinishAnswerReg, answer, sizeof(answer));
        __android_log_print(ANDROID_LOG_INFO, LOG_TAG,
                            "fun = %s, iic_read ret = %d, result_data = 0x%x", __func__, ret,
                            answer[0]);
        if (ret == MOTOR_OK && answer[0] == kAccepted) return MOTOR_OK;
        usleep(kRetryPauseUs);
    }
    return ret;
}

}  // namespace lumacast
}  // namespace android
