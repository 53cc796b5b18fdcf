#define LOG_TAG "ProcessState"

#include <binder/ProcessState.h>

#include "Runtime.h"

namespace android {

namespace {
std::mutex gLock;
ProcessState* gProcess = nullptr;
}  // namespace

sp<ProcessState> ProcessState::self() {
    std::lock_guard<std::mutex> lock(gLock);
    if (gProcess == nullptr) {
        gProcess = new ProcessState();
        // Never destroyed: binder threads may still use it while the process exits.
        gProcess->incStrong(nullptr);
    }
    return gProcess;
}

sp<ProcessState> ProcessState::selfOrNull() {
    std::lock_guard<std::mutex> lock(gLock);
    return gProcess;
}

ProcessState::ProcessState() {}

ProcessState::~ProcessState() {}

void ProcessState::startThreadPool() { hostbinder::Runtime::get().pool().start(); }

void ProcessState::spawnPooledThread(bool isMain) {
    hostbinder::Runtime::get().pool().spawn(isMain);
}

status_t ProcessState::setThreadPoolMaxThreadCount(size_t maxThreads) {
    return hostbinder::Runtime::get().pool().setMaxThreads(maxThreads);
}

size_t ProcessState::getThreadPoolMaxThreadCount() const {
    return hostbinder::Runtime::get().pool().maxThreads();
}

void ProcessState::giveThreadPoolName() {}

String8 ProcessState::getDriverName() { return String8("/dev/binder"); }

bool ProcessState::becomeContextManager() { return false; }

}  // namespace android
