#pragma once

#include <pthread.h>

#include <atomic>

#include "util/ThreadObject.h"

namespace android {
namespace lumacast {

class ILumacastClient;

// Once armed, calls checkAlive() on its client every interval until destroyed.
class TimerUtil {
public:
    class Client : public ThreadObject {
    public:
        explicit Client(TimerUtil* parent) : mParent(parent) {}
        int selfProcess(void* data1, void* data2) override;

    private:
        TimerUtil* mParent;
    };

    // `timerName` is stored, not copied: pass a string literal.
    TimerUtil(const char* timerName, ILumacastClient* lumacastClient);
    ~TimerUtil();
    TimerUtil(const TimerUtil&) = delete;
    TimerUtil& operator=(const TimerUtil&) = delete;

    // Arms the timer; later calls are ignored, so the first interval holds for good.
    void start(int milliSecondInterval);
    // Ends and joins the timer thread (the destructor does it too); a start() made
    // meanwhile or later on another thread is ignored.
    void stop();
    int onProcess(void* data1 = nullptr, void* data2 = nullptr);

    bool isStarted() const { return mIsStarted.load(); }

private:
    // Sleeps one interval; returns early only when the timer is being destroyed.
    void sleepInterval();

    ILumacastClient* mThreadObject;
    Client* mClient;
    pthread_t mThread;
    pthread_mutex_t mMutex;
    pthread_cond_t mCond;
    const char* mThreadName;
    std::atomic<int> mTimeInterval;
    std::atomic<bool> mIsStarted;
    // Recorded under mMutex so that neither an arming nor a stop is lost, whenever it
    // comes relative to the timer thread's wait.
    bool mStartRequested;
    bool mStopRequested;
};

}  // namespace lumacast
}  // namespace android
