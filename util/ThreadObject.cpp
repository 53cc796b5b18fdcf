#define LOG_TAG "lumacastservice"

#include "util/ThreadObject.h"

#include <stdint.h>

#include <log/log.h>

namespace android {
namespace lumacast {

void* threadWork(void* arg) {
    int retInt = -1;
    if (arg == nullptr) {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "threadWork nullptr == arg err");
    } else {
        retInt = static_cast<ThreadObject*>(arg)->selfProcess(nullptr, nullptr);
        if (retInt < 0) {
            __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "threadWork 0 > retInt:%d err", retInt);
        }
    }
    return reinterpret_cast<void*>(static_cast<intptr_t>(retInt));
}

int threadExitValue(void* result) {
    return static_cast<int>(reinterpret_cast<intptr_t>(result));
}

}  // namespace lumacast
}  // namespace android
