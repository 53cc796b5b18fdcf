#pragma once

#include <pthread.h>
#include <stdint.h>
#include <sys/time.h>
#include <time.h>

namespace android {
namespace lumacast {

// One waiter at a time, woken by signal() or a time-out. Not a latch: a signal given
// while nobody waits is lost.
class SignalUtil {
public:
    SignalUtil();
    ~SignalUtil();
    SignalUtil(const SignalUtil&) = delete;
    SignalUtil& operator=(const SignalUtil&) = delete;

    // 0 once signalled; -2 if another thread already waits.
    int wait();
    // 0 once signalled or timed out; -1 if milliSecond <= 0; -2 if another thread waits.
    int wait(int milliSecond);
    void signal();
    // Keeps a signal() given from now on for the next wait(), which then returns at once.
    // For callers that must start what will be signalled before they can block.
    void arm();

    bool isWaiting();

    // The absolute wall-clock deadline `milliSecond` after `now`.
    static struct timespec deadlineFrom(const struct timeval& now, int milliSecond);

private:
    // The generation a wait starting now must see change; consumes an arm(). Under mMutex.
    uint64_t takeStartGeneration();

    pthread_mutex_t mMutex;
    pthread_cond_t mCond;
    bool mIsWaiting;  // guarded by mMutex
    // Bumped by every signal that finds a waiter; a waiter returns only when it changes
    // (or the deadline passes), so spurious wake-ups are not mistaken for a signal.
    uint64_t mGeneration;  // guarded by mMutex
    bool mIsArmed;                 // guarded by mMutex
    uint64_t mArmedGeneration;     // guarded by mMutex
};

}  // namespace lumacast
}  // namespace android
