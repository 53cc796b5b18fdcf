#define LOG_TAG "CameraMotor-I2C"

#include "service/CameraMotorService.h"

#include <cutils/properties.h>
#include <errno.h>
#include <log/log.h>
#include <unistd.h>
#include <utils/Unicode.h>

#include <atomic>
#include <mutex>

#include "motor/IMotor.h"
#include "motor/UpgradeProgress.h"
#include "service/DumpText.h"

namespace android {
namespace lumacast {

namespace {

constexpr const char* kStatusProperty = "persist.sys.kora.camera.status";

// The driver of the process. It only ever goes from null to the driver getInstance chose
// (which getInstance hands back for every later string), and is released when the service
// goes; so a call that races set_client_type sees either no driver or the one driver, never
// a released one, and no lock is held across motor calls that can take minutes.
std::atomic<IMotor*> motorInstance{nullptr};

// The board string that chose the driver, for dump only.
std::mutex boardTypeMutex;
std::string boardType;  // guarded by boardTypeMutex

// What `dumpsys cameramotorservice --help` answers: one line per line of the dump.
constexpr char kDumpHelp[] =
        "cameramotorservice dump shows:\n"
        "  driver: the board type that chose the motor driver, or none\n"
        "  motor supported: whether a driver is in use\n"
        "  persist.sys.kora.camera.status: the clients' flag, as stored\n"
        "  firmware upgrade: the one running (package k of n), else how the last one ended\n"
        "    (its result code and the package it reached) and how many ran since start-up\n";

}  // namespace

CameraMotorService::CameraMotorService() {
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                        "CameraMotorService::start camera motor service");
}

CameraMotorService::~CameraMotorService() {
    IMotor::releaseInstance(motorInstance.exchange(nullptr));
}

binder::Status CameraMotorService::set_client_type(const std::string& type) {
    // A second call keeps the chosen driver: the board does not change while the TV runs,
    // and releasing a driver other binder threads may be using is not safe.
    IMotor* motor = IMotor::getInstance(type);
    if (motor != nullptr) {
        motorInstance.store(motor);
        std::lock_guard<std::mutex> lock(boardTypeMutex);
        if (boardType.empty()) boardType = type;
    }
    return binder::Status::ok();
}

binder::Status CameraMotorService::motor_down(int32_t* result) {
    *result = 0;
    if (IMotor* motor = motorInstance.load()) *result = motor->motor_down();
    return binder::Status::ok();
}

binder::Status CameraMotorService::motor_up(int32_t* result) {
    *result = 0;
    if (IMotor* motor = motorInstance.load()) *result = motor->motor_up();
    return binder::Status::ok();
}

binder::Status CameraMotorService::get_motor_status(int32_t* status) {
    *status = 4;
    if (IMotor* motor = motorInstance.load()) *status = motor->get_motor_status();
    return binder::Status::ok();
}

binder::Status CameraMotorService::get_rise_time(int32_t* time) {
    *time = 4;
    if (IMotor* motor = motorInstance.load()) *time = motor->get_rotate_time();
    return binder::Status::ok();
}

binder::Status CameraMotorService::get_switch_status(bool* on) {
    *on = true;
    if (IMotor* motor = motorInstance.load()) *on = motor->get_switch_status() == 1;
    return binder::Status::ok();
}

binder::Status CameraMotorService::is_support_motor(bool* supported) {
    *supported = false;
    if (motorInstance.load() != nullptr) *supported = IMotor::is_support_motor();
    return binder::Status::ok();
}

binder::Status CameraMotorService::set_status(bool status) {
    property_set(kStatusProperty, status ? "1" : "0");
    return binder::Status::ok();
}

binder::Status CameraMotorService::get_status(bool* status) {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(kStatusProperty, value, "0");
    *status = value[0] == '1';
    return binder::Status::ok();
}

binder::Status CameraMotorService::get_mcu_version(std::string* version) {
    version->clear();
    IMotor* motor = motorInstance.load();
    if (motor == nullptr) {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                            "CameraMotorService::get_mcu_version motorInstance is null");
        return binder::Status::ok();
    }
    // Copied at once: the text lives in the driver's buffer for this thread.
    const std::string text = motor->get_mcu_version();
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "%s", text.c_str());
    // The reply carries UTF-16; bytes from the MCU that are not UTF-8 would fail the whole
    // reply, so they are reported as no version.
    if (utf8_to_utf16_length(reinterpret_cast<const uint8_t*>(text.data()), text.size()) < 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "CameraMotorService::get_mcu_version version is not text");
        return binder::Status::ok();
    }
    *version = text;
    return binder::Status::ok();
}

binder::Status CameraMotorService::mcu_upgrade(const std::string& path, int32_t* result) {
    *result = 0;
    if (IMotor* motor = motorInstance.load()) *result = motor->motor_mcu_upgrade(path);
    return binder::Status::ok();
}

status_t CameraMotorService::dump(int fd, const Vector<String16>& args) {
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == String16("--help") || args[i] == String16("-h")) {
            return writeDumpText(fd, kDumpHelp);
        }
    }
    std::string board;
    {
        std::lock_guard<std::mutex> lock(boardTypeMutex);
        board = boardType;
    }
    char status[PROPERTY_VALUE_MAX] = {};
    property_get(kStatusProperty, status, "");
    std::string text = "cameramotorservice (kora.lumacast.IKCameraMotor)\n";
    if (motorInstance.load() != nullptr) {
        text += "  driver: selected by board type \"" + board + "\"\n";
    } else {
        text += "  driver: none (no set_client_type with a known board model yet)\n";
    }
    text += std::string("  motor supported: ") +
            (motorInstance.load() != nullptr && IMotor::is_support_motor() ? "yes" : "no") + "\n";
    text += std::string("  ") + kStatusProperty + ": " + (status[0] != '\0' ? status : "(unset)") +
            "\n";
    const UpgradeProgress::State up = UpgradeProgress::read();
    auto packages = [](int k, int n) {
        return "package " + std::to_string(k) + " of " + std::to_string(n);
    };
    if (up.running) {
        text += "  firmware upgrade: running, " + packages(up.package, up.packages) + "\n";
    } else if (up.upgrades == 0) {
        text += "  firmware upgrade: none since start-up\n";
    } else {
        text += "  firmware upgrade: last ended with " + std::to_string(up.lastResult) + " at " +
                packages(up.lastPackage, up.lastPackages) + " (" + std::to_string(up.upgrades) +
                " since start-up)\n";
    }
    return writeDumpText(fd, text);
}

}  // namespace lumacast
}  // namespace android
