#pragma once

#include <stddef.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

namespace android {

class IBinder;

// The process's binder state. On the host it owns this process's endpoint socket (made
// when the first service is added), its sessions with other processes and the pool of
// threads that serve incoming calls.
class ProcessState : public virtual RefBase {
  public:
    static sp<ProcessState> self();
    static sp<ProcessState> selfOrNull();

    // Starts the pool's first thread; more are started while calls wait, up to the
    // maximum (libbinder's default of 15).
    void startThreadPool();
    void spawnPooledThread(bool isMain);
    status_t setThreadPoolMaxThreadCount(size_t maxThreads);
    size_t getThreadPoolMaxThreadCount() const;
    void giveThreadPoolName();
    String8 getDriverName();
    bool becomeContextManager();

  private:
    ProcessState();
    ~ProcessState() override;
    ProcessState(const ProcessState&) = delete;
    ProcessState& operator=(const ProcessState&) = delete;
};

}  // namespace android
