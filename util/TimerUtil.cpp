#define LOG_TAG "lumacastservice"

#include "util/TimerUtil.h"

#include <errno.h>
#include <sys/prctl.h>
#include <time.h>

#include <log/log.h>

#include "util/ILumacastClient.h"

namespace android {
namespace lumacast {

int TimerUtil::Client::selfProcess(void*, void*) {
    if (mParent == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "TimerUtil::Client selfProcess nullptr == mParent err");
        return -1;
    }
    mParent->onProcess();
    return 0;
}

TimerUtil::TimerUtil(const char* timerName, ILumacastClient* lumacastClient)
    : mThreadObject(nullptr),
      mClient(nullptr),
      mThread(),
      mThreadName(timerName),
      mTimeInterval(2000),
      mIsStarted(false),
      mStartRequested(false),
      mStopRequested(false) {
    pthread_mutex_init(&mMutex, nullptr);
    // Intervals are measured on the monotonic clock: a wall-clock step must not stretch
    // or skip a heartbeat.
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    pthread_cond_init(&mCond, &attr);
    pthread_condattr_destroy(&attr);

    if (lumacastClient == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "TimerUtil nullptr == lumacastClient err");
        return;
    }
    if (timerName == nullptr || timerName[0] == '\0') {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "TimerUtil nullptr == timerName err");
        return;
    }
    mClient = new Client(this);
    mThreadObject = lumacastClient;
    const int err = pthread_create(&mThread, nullptr, threadWork, mClient);
    if (err != 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "TimerUtil %s pthread_create:%d",
                            mThreadName, err);
        delete mClient;
        mClient = nullptr;
    }
}

TimerUtil::~TimerUtil() {
    stop();
    pthread_mutex_destroy(&mMutex);
    pthread_cond_destroy(&mCond);
    delete mClient;
    mClient = nullptr;
}

void TimerUtil::stop() {
    pthread_mutex_lock(&mMutex);
    const bool joinHere = mClient != nullptr && !mStopRequested;
    // Both under the lock, which start() holds while it checks and sets: a start() cannot
    // put an interval back between the two.
    mTimeInterval = 0;
    mStopRequested = true;
    pthread_cond_signal(&mCond);
    pthread_mutex_unlock(&mMutex);
    if (!joinHere) return;
    void* result = nullptr;
    pthread_join(mThread, &result);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "~TimerUtil %s exitRet:%d", mThreadName,
                        threadExitValue(result));
}

void TimerUtil::start(int milliSecondInterval) {
    pthread_mutex_lock(&mMutex);
    if (mIsStarted || mStartRequested) {
        pthread_mutex_unlock(&mMutex);
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "TimerUtil::start %s mIsStarted:%d",
                            mThreadName, 1);
        return;
    }
    if (mStopRequested) {
        pthread_mutex_unlock(&mMutex);
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "TimerUtil::start %s stopped", mThreadName);
        return;
    }
    if (milliSecondInterval <= 0) {
        pthread_mutex_unlock(&mMutex);
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                            "TimerUtil::start %s milliSecondInterval:%d <= 0", mThreadName,
                            milliSecondInterval);
        return;
    }
    mTimeInterval = milliSecondInterval;
    mStartRequested = true;
    pthread_cond_signal(&mCond);
    pthread_mutex_unlock(&mMutex);
}

void TimerUtil::sleepInterval() {
    const int interval = mTimeInterval.load();
    if (interval <= 0) return;
    struct timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += interval / 1000;
    deadline.tv_nsec += (interval % 1000) * 1000000L;
    if (deadline.tv_nsec >= 1000000000L) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1000000000L;
    }
    pthread_mutex_lock(&mMutex);
    while (!mStopRequested) {
        if (pthread_cond_timedwait(&mCond, &mMutex, &deadline) == ETIMEDOUT) break;
    }
    pthread_mutex_unlock(&mMutex);
}

int TimerUtil::onProcess(void*, void*) {
    if (mThreadName[0] != '\0') prctl(PR_SET_NAME, mThreadName, 0, 0, 0);

    pthread_mutex_lock(&mMutex);
    while (!mStartRequested && !mStopRequested) pthread_cond_wait(&mCond, &mMutex);
    mIsStarted = true;
    pthread_mutex_unlock(&mMutex);

    sleepInterval();
    while (mTimeInterval != 0) {
        if (mThreadObject == nullptr) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                "TimerUtil::onProcess %s nullptr == mThreadObject err",
                                mThreadName);
        } else {
            mThreadObject->checkAlive();
        }
        sleepInterval();
    }
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "TimerUtil::onProcess mTimeInterval is 0");
    return 0;
}

}  // namespace lumacast
}  // namespace android
