#define LOG_TAG "IPCThreadState"

#include <binder/IPCThreadState.h>
#include <unistd.h>

#include <memory>

#include "Runtime.h"

namespace android {

namespace {
thread_local std::unique_ptr<IPCThreadState> tState;
}  // namespace

IPCThreadState* IPCThreadState::self() {
    IPCThreadState* st = tState.get();
    if (st == nullptr) {
        tState.reset(new IPCThreadState());
        return tState.get();
    }
    if (st->mGeneration != hostbinder::Runtime::generation()) {
        // Forked while inside a call: the calls being served belong to the parent.
        tState.reset(new IPCThreadState());
    }
    return tState.get();
}

IPCThreadState* IPCThreadState::selfOrNull() { return tState.get(); }

IPCThreadState::IPCThreadState()
    : mCallingPid(getpid()),
      mCallingUid(getuid()),
      mGeneration(hostbinder::Runtime::generation()) {}

IPCThreadState::~IPCThreadState() {}

sp<ProcessState> IPCThreadState::process() { return ProcessState::self(); }

pid_t IPCThreadState::getCallingPid() const { return mCallingPid; }

uid_t IPCThreadState::getCallingUid() const { return mCallingUid; }

int64_t IPCThreadState::clearCallingIdentity() {
    const int64_t token =
            (static_cast<int64_t>(mCallingUid) << 32) | static_cast<uint32_t>(mCallingPid);
    mCallingPid = getpid();
    mCallingUid = getuid();
    return token;
}

void IPCThreadState::restoreCallingIdentity(int64_t token) {
    mCallingUid = static_cast<uid_t>(static_cast<uint64_t>(token) >> 32);
    mCallingPid = static_cast<pid_t>(static_cast<uint32_t>(token));
}

void IPCThreadState::setStrictModePolicy(int32_t policy) { mStrictModePolicy = policy; }

int32_t IPCThreadState::getStrictModePolicy() const { return mStrictModePolicy; }

int64_t IPCThreadState::setCallingWorkSourceUid(uid_t uid) {
    const int64_t token = setCallingWorkSourceUidWithoutPropagation(uid);
    mPropagateWorkSource = true;
    return token;
}

int64_t IPCThreadState::setCallingWorkSourceUidWithoutPropagation(uid_t uid) {
    const int64_t propagatedBit = static_cast<int64_t>(mPropagateWorkSource) << 32;
    const int64_t token = propagatedBit | static_cast<uint32_t>(mWorkSource);
    mWorkSource = static_cast<int32_t>(uid);
    return token;
}

uid_t IPCThreadState::getCallingWorkSourceUid() const { return static_cast<uid_t>(mWorkSource); }

int64_t IPCThreadState::clearCallingWorkSource() {
    return setCallingWorkSourceUid(static_cast<uid_t>(kUnsetWorkSource));
}

void IPCThreadState::restoreCallingWorkSource(int64_t token) {
    mWorkSource = static_cast<int32_t>(token & 0xffffffff);
    mPropagateWorkSource = ((token >> 32) & 1) != 0;
}

void IPCThreadState::clearPropagateWorkSource() { mPropagateWorkSource = false; }

bool IPCThreadState::shouldPropagateWorkSource() const { return mPropagateWorkSource; }

void IPCThreadState::setLastTransactionBinderFlags(int32_t flags) {
    mLastTransactionBinderFlags = flags;
}

int32_t IPCThreadState::getLastTransactionBinderFlags() const {
    return mLastTransactionBinderFlags;
}

void IPCThreadState::flushCommands() {}

void IPCThreadState::joinThreadPool(bool) { hostbinder::Runtime::get().pool().join(); }

}  // namespace android
