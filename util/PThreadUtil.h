#pragma once

#include <pthread.h>

#include <atomic>

#include "util/ThreadObject.h"

namespace android {
namespace lumacast {

// A named worker thread with a single-item hand-over: process() waits until the worker
// is idle, gives it one item and returns; the worker runs it through its ThreadObject.
class PThreadUtil {
public:
    class Client : public ThreadObject {
    public:
        explicit Client(PThreadUtil* parent) : mParent(parent) {}
        int selfProcess(void* data1, void* data2) override;

    private:
        PThreadUtil* mParent;
    };

    // `threadName` is stored, not copied: pass a string literal.
    PThreadUtil(const char* threadName, ThreadObject* threadObject);
    ~PThreadUtil();
    PThreadUtil(const PThreadUtil&) = delete;
    PThreadUtil& operator=(const PThreadUtil&) = delete;

    // Hands `data` to the worker; blocks while the worker is busy. `data` must stay valid
    // until the worker has finished with it.
    void process(void* data);
    int onProcess(void* data1 = nullptr, void* data2 = nullptr);

    bool isInited() const { return mIsInited.load(); }
    bool isBusy() const { return mIsBusy.load(); }

private:
    // Waits for the next hand-over; returns the item (null means stop).
    void* takeItem();

    ThreadObject* mThreadObject;
    Client* mClient;
    pthread_t mThread;
    pthread_mutex_t mMutex;
    pthread_cond_t mCond;
    std::atomic<bool> mIsInited;
    std::atomic<bool> mIsBusy;
    const char* mThreadName;
    void* mData;  // guarded by mMutex
    // An item (or the stop request) has been handed over and not yet taken. The worker
    // waits on this rather than on the bare condition, so a hand-over made before it
    // sleeps is not lost and a spurious wake-up does not rerun the last item.
    bool mPending;  // guarded by mMutex
    bool mMutexInited;
};

}  // namespace lumacast
}  // namespace android
