#pragma once

#include <binder/ProcessState.h>
#include <stdint.h>
#include <sys/types.h>
#include <utils/Errors.h>

#include <vector>

namespace android {

namespace hostbinder {
class Session;
class ThreadPool;
}  // namespace hostbinder

// Per-thread binder state: the identity of the caller being served and the thread's
// part in the pool.
class IPCThreadState {
  public:
    static IPCThreadState* self();
    static IPCThreadState* selfOrNull();

    sp<ProcessState> process();

    // This process's own pid and uid outside a call from another process.
    pid_t getCallingPid() const;
    uid_t getCallingUid() const;
    int64_t clearCallingIdentity();
    void restoreCallingIdentity(int64_t token);

    void setStrictModePolicy(int32_t policy);
    int32_t getStrictModePolicy() const;

    int64_t setCallingWorkSourceUid(uid_t uid);
    int64_t setCallingWorkSourceUidWithoutPropagation(uid_t uid);
    uid_t getCallingWorkSourceUid() const;
    int64_t clearCallingWorkSource();
    void restoreCallingWorkSource(int64_t token);
    void clearPropagateWorkSource();
    bool shouldPropagateWorkSource() const;

    void setLastTransactionBinderFlags(int32_t flags);
    int32_t getLastTransactionBinderFlags() const;

    void flushCommands();

    // Serves incoming calls on this thread; does not return.
    void joinThreadPool(bool isMain = true);

    static constexpr int32_t kUnsetWorkSource = -1;

    ~IPCThreadState();

  private:
    friend class hostbinder::Session;
    friend class hostbinder::ThreadPool;

    // The incoming call this thread is serving, innermost last, so that a call back
    // into the same peer is run by the peer's thread that waits for us.
    struct Frame {
        hostbinder::Session* session;
        uint64_t callId;
    };

    IPCThreadState();
    IPCThreadState(const IPCThreadState&) = delete;
    IPCThreadState& operator=(const IPCThreadState&) = delete;

    pid_t mCallingPid;
    uid_t mCallingUid;
    int32_t mStrictModePolicy = 0;
    int32_t mLastTransactionBinderFlags = 0;
    int32_t mWorkSource = kUnsetWorkSource;
    bool mPropagateWorkSource = false;
    std::vector<Frame> mServing;
    uint64_t mGeneration;
};

}  // namespace android
