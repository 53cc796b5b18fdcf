#pragma once

#include <log/log.h>
#include <stddef.h>

#include <string>

namespace android {
namespace lumacast {

// The fifteen camera operations, one wait signal each; also the order of the dump.
enum CommandKind {
    SET_ZOOM_SWITCH,
    GET_ZOOM_SWITCH,
    GET_AI_ALGO_LIST,
    SET_AI_SUBSCRIBE_TYPE,
    GET_AI_SUBSCRIBE_STATUS,
    SET_AI_SUBSCRIBE,
    GET_AI_SUBSCRIBE,
    GRAB_FRAME,
    SEND_DOA,
    SET_AUTO_FRAMING,
    GET_AUTO_FRAMING,
    SET_ZOOM_MODE,
    GET_ZOOM_MODE,
    SET_AI_PROPERTY,
    GET_AI_PROPERTY,
    COMMAND_KIND_COUNT,
};

// How the result of an operation is judged ("matched": the wait ended by a signal and the
// result carries the operation's cmd_id) and what its caller gets.
enum class Judge {
    SWITCH,  // true when matched, param 1 and rval 0; else false
    COUNT,   // param when matched and rval 0; else 0
    RESULT,  // true when matched and rval 0; else false
    TEXT,    // the result text, whatever came; only the mismatch is logged
};

// One camera operation. The formats take, in order: `entry` the binder method's
// arguments (or a first part of them), `text` the cmd_id and then those arguments,
// `echo` the command text, `tooLong` the length of the string argument, `mismatch`
// retWait, mCmd, [mParam,] mRetVal. The flow that runs a row checks each of its formats
// against the argument types of its binder method at compile time (camera_formats
// below), so that the formats stay as safe as literals that -Wformat sees.
struct CameraOperation {
    CommandKind kind;
    const char* name;
    int cmdId;
    size_t textSize;  // of the buffer the text is formatted in, zero included
    const char* text;
    Judge judge;
    const char* entry;     // debug
    const char* busy;      // error
    const char* notReady;  // error
    const char* mismatch;  // debug
    int echoPriority;      // of `echo`, logged once the packet is built
    const char* echo;
    const char* tooLong;  // error; for the operations that take a string
};

constexpr CameraOperation kCameraOperations[COMMAND_KIND_COUNT] = {
        {SET_ZOOM_SWITCH, "setZoomSwitch", 14, 50, "{\"cmd_id\":%d,\"param\":%d}", Judge::SWITCH,
         "LumacastService::setZoomSwitch",
         "LumacastService::setZoomSwitch nullptr != mSignalSetZoomSwitch(last processing)",
         "LumacastService::setZoomSwitch failed",
         "LumacastService::setZoomSwitch retWait:%d, mCmd:%d, mParam:%d, mRetVal:%d", 0, nullptr,
         nullptr},
        {GET_ZOOM_SWITCH, "getZoomSwitch", 15, 50, "{\"cmd_id\":%d,\"param\":%d}", Judge::SWITCH,
         "LumacastService::getZoomSwitch",
         "LumacastService::getZoomSwitch nullptr != mSignalGetZoomSwitch(last processing)",
         "LumacastService::getZoomSwitch failed",
         "LumacastService::getZoomSwitch retWait:%d, mCmd:%d, mParam:%d, mRetVal:%d", 0, nullptr,
         nullptr},
        {GET_AI_ALGO_LIST, "getAiAlgoList", 16, 50, "{\"cmd_id\":%d,\"param\":%d}", Judge::COUNT,
         "LumacastService::getAiAlgoList",
         "LumacastService::getAiAlgoList nullptr != mSignalGetAiAlgoList(last processing)",
         "LumacastService::getAiAlgoList failed",
         "LumacastService::getAiAlgoList retWait:%d, mCmd:%d, mParam:%d, mRetVal:%d", 0, nullptr,
         nullptr},
        {SET_AI_SUBSCRIBE_TYPE, "setAiSubscribeType", 1, 50, "{\"cmd_id\":%d,\"param\":%d}",
         Judge::RESULT, "LumacastService::setAiSubscribeType type:%d",
         "LumacastService::setAiSubscribeType nullptr != mSignalSetAiSubscribeType(last "
         "processing)",
         "LumacastService::setAiSubscribeType failed",
         "LumacastService::setAiSubscribeType retWait:%d, mCmd:%d, mParam:%d, mRetVal:%d",
         ANDROID_LOG_DEBUG, "LumacastService::setAiSubscribeType process", nullptr},
        {GET_AI_SUBSCRIBE_STATUS, "getAiSubscribeStatus", 2, 50, "{\"cmd_id\":%d,\"param\":%d}",
         Judge::COUNT, "LumacastService::getAiSubscribeStatus",
         "LumacastService::getAiSubscribeStatus nullptr != mSignalGetAiSubscribeStatus(last "
         "processing)",
         "LumacastService::getAiSubscribeStatus failed",
         "LumacastService::getAiSubscribeStatus retWait:%d, mCmd:%d, mParam:%d, mRetVal:%d", 0,
         nullptr, nullptr},
        {SET_AI_SUBSCRIBE, "setAiSubscribe", 1, 100, "{\"cmd_id\":%d,\"param\":%d,\"option\":%s}",
         Judge::RESULT, "LumacastService::setAiSubscribe param = %d, option = %s",
         "LumacastService::mSignalSetAiSubscribe nullptr != mSignalSetAiSubscribe(last "
         "processing)",
         "LumacastService::setAiSubscribe failed",
         "LumacastService::mSignalSetAiSubscribe retWait:%d, mCmd:%d, mParam:%d, mRetVal:%d", 0,
         nullptr, "LumacastService::setAiSubscribe option too long (%zu) err"},
        {GET_AI_SUBSCRIBE, "getAiSubscribe", 2, 50, "{\"cmd_id\":%d,\"param\":%d}", Judge::TEXT,
         "LumacastService::getAiSubscribe",
         "LumacastService::getAiSubscribe nullptr != mSignalGetAiSubscribe(last processing)",
         "LumacastService::getAiSubscribe failed", "retWait:%d, mCmd:%d, mParam:%d, mRetVal:%d", 0,
         nullptr, nullptr},
        {GRAB_FRAME, "grabFrame", 3, 100, "{\"cmd_id\":%d,\"param_1\":%d,\"param_2\":\"%s\"}",
         Judge::RESULT, "LumacastService::grabFrame format:%d, resolution:%s",
         "LumacastService::grabFrame nullptr != mSignalGrapFrame(last processing)",
         "LumacastService::grabFrame failed",
         "LumacastService::grabFrame retWait:%d, mCmd:%d, mRetVal:%d", 0, nullptr,
         "LumacastService::grabFrame resolution too long (%zu) err"},
        {SEND_DOA, "sendDoa", 4, 200, "{\"cmd_id\":%d,\"param\":%s}", Judge::RESULT,
         "LumacastService::sendDoa data:%s",
         "LumacastService::sendDoa nullptr != mSignalSendDoa(last processing)",
         "LumacastService::sendDoa failed",
         "LumacastService::sendDoa retWait:%d, mCmd:%d, mRetVal:%d", 0, nullptr,
         "LumacastService::sendDoa data too long (%zu) err"},
        {SET_AUTO_FRAMING, "setAutoFraming", 12, 100, "{\"cmd_id\":%d,\"param\":%d}", Judge::RESULT,
         "LumacastService::setAutoFraming param:%d",
         "LumacastService::setAutoFraming nullptr != mSignalSetAutoFraming(last processing)",
         "LumacastService::setAutoFraming failed",
         "LumacastService::setAutoFraming retWait:%d, mCmd:%d, mRetVal:%d", 0, nullptr, nullptr},
        {GET_AUTO_FRAMING, "getAutoFraming", 13, 50, "{\"cmd_id\":%d,\"param\":%d}", Judge::SWITCH,
         "LumacastService::getAutoFraming",
         "LumacastService::getAutoFraming nullptr != mSignalgetAutoFraming(last processing)",
         "LumacastService::getAutoFraming failed",
         "LumacastService::getAutoFraming retWait:%d, mCmd:%d, mParam:%d, mRetVal:%d", 0, nullptr,
         nullptr},
        {SET_ZOOM_MODE, "setZoomMode", 14, 100, "{\"cmd_id\":%d,\"param\":%d,\"mode\":%d}",
         Judge::RESULT, "LumacastService::setZoomMode",
         "LumacastService::setZoomMode nullptr != mSignalSetZoomMode(last processing)",
         "LumacastService::setZoomMode failed",
         "LumacastService::setZoomMode retWait:%d, mCmd:%d, mParam:%d, mRetVal:%d",
         ANDROID_LOG_INFO, "LumacastService::setZoomMode  %s", nullptr},
        {GET_ZOOM_MODE, "getZoomMode", 15, 50, "{\"cmd_id\":%d,\"param\":%d}", Judge::TEXT,
         "LumacastService::getZoomMode",
         "LumacastService::getZoomMode nullptr != mSignalGetZoomMode(last processing)",
         "LumacastService::getZoomMode failed",
         "LumacastService::getZoomMode retWait:%d, mCmd:%d, mParam:%d, mRetVal:%d", 0, nullptr,
         nullptr},
        {SET_AI_PROPERTY, "setAiProperty", 5, 200, "{\"cmd_id\":%d,\"param\":\"%s\"}",
         Judge::RESULT, "LumacastService::setAiProperty param = %s",
         "LumacastService::setAiProperty nullptr != mSignalSetAiProperty(last processing)",
         "LumacastService::setAiProperty failed",
         "LumacastService::setAiProperty retWait:%d, mCmd:%d, mParam:%d, mRetVal:%d",
         ANDROID_LOG_INFO, "LumacastService::setAiProperty  %s",
         "LumacastService::setAiProperty param too long (%zu) err"},
        {GET_AI_PROPERTY, "getAiProperty", 6, 200, "{\"cmd_id\":%d,\"param\":\"%s\"}", Judge::TEXT,
         "LumacastService::getAiProperty is %s",
         "LumacastService::getAiProperty nullptr != mSignalGetAiProperty(last processing)",
         "LumacastService::getAiProperty failed",
         "LumacastService::getAiProperty retWait:%d, mCmd:%d, mParam:%d, mRetVal:%d",
         ANDROID_LOG_INFO, "LumacastService::getAiProperty  %s",
         "LumacastService::getAiProperty param too long (%zu) err"},
};

// Compile-time reading of a printf format: the conversions it takes, one letter each
// ('d' for %d or %i, 's' for %s, 'z' for %zu), checked against an expected list. Any other
// conversion, flag or width makes the format unacceptable here.
namespace camera_formats {

constexpr bool takes(const char* format, const char* expected) {
    if (format == nullptr) return false;
    for (; *format != '\0'; ++format) {
        if (*format != '%') continue;
        ++format;
        char got = 0;
        if (*format == 'd' || *format == 'i') {
            got = 'd';
        } else if (*format == 's') {
            got = 's';
        } else if (format[0] == 'z' && format[1] == 'u') {
            got = 'z';
            ++format;
        } else {
            return false;
        }
        if (*expected++ != got) return false;
    }
    return *expected == '\0';
}

// How many arguments a format takes.
constexpr size_t conversions(const char* format) {
    size_t n = 0;
    for (; *format != '\0'; ++format) n += *format == '%' ? 1 : 0;
    return n;
}

// The conversions of a format are a first part of `expected`: an entry message may log
// only the first of its operation's arguments.
constexpr bool takesFirstOf(const char* format, const char* expected) {
    char prefix[8] = {};
    for (int n = 0;; ++n) {
        if (takes(format, prefix)) return true;
        if (n == 7 || expected[n] == '\0') return false;
        prefix[n] = expected[n];
    }
}

template <typename T>
constexpr char letterOf();
template <>
constexpr char letterOf<int>() {
    return 'd';
}
template <>
constexpr char letterOf<std::string>() {
    return 's';
}

// The conversion letters of an argument list, zero-terminated.
template <typename... Args>
struct Letters {
    static constexpr char value[] = {letterOf<Args>()..., '\0'};
};

constexpr bool rowsInKindOrder() {
    for (int k = 0; k < COMMAND_KIND_COUNT; ++k) {
        if (kCameraOperations[k].kind != k) return false;
    }
    return true;
}
static_assert(rowsInKindOrder(), "one row per kind, in the order of CommandKind");

}  // namespace camera_formats

}  // namespace lumacast
}  // namespace android
