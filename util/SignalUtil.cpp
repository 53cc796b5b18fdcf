#define LOG_TAG "lumacastservice"

#include "util/SignalUtil.h"

#include <errno.h>

#include <log/log.h>

namespace android {
namespace lumacast {

SignalUtil::SignalUtil()
    : mIsWaiting(false), mGeneration(0), mIsArmed(false), mArmedGeneration(0) {
    pthread_mutex_init(&mMutex, nullptr);
    pthread_cond_init(&mCond, nullptr);
}

SignalUtil::~SignalUtil() {
    pthread_mutex_destroy(&mMutex);
    pthread_cond_destroy(&mCond);
}

struct timespec SignalUtil::deadlineFrom(const struct timeval& now, int milliSecond) {
    struct timespec deadline;
    deadline.tv_sec = now.tv_sec + milliSecond / 1000;
    long nsec = (static_cast<long>(now.tv_usec) + (milliSecond % 1000) * 1000L) * 1000L;
    // Below two seconds' worth, so one carry is enough.
    if (nsec >= 1000000000L) {
        deadline.tv_sec += 1;
        nsec -= 1000000000L;
    }
    deadline.tv_nsec = nsec;
    return deadline;
}

int SignalUtil::wait() {
    pthread_mutex_lock(&mMutex);
    if (mIsWaiting) {
        pthread_mutex_unlock(&mMutex);
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "SignalUtil::wait mIsWaiting:%d", 1);
        return -2;
    }
    mIsWaiting = true;
    const uint64_t generation = takeStartGeneration();
    int retWait = 0;
    while (generation == mGeneration) retWait = pthread_cond_wait(&mCond, &mMutex);
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "SignalUtil::wait  pthread_cond_wait retWait = %d",
                        retWait);
    mIsWaiting = false;
    pthread_mutex_unlock(&mMutex);
    return 0;
}

int SignalUtil::wait(int milliSecond) {
    pthread_mutex_lock(&mMutex);
    if (milliSecond <= 0) {
        pthread_mutex_unlock(&mMutex);
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "SignalUtil::wait milliSecond:%d <= 0",
                            milliSecond);
        return -1;
    }
    if (mIsWaiting) {
        pthread_mutex_unlock(&mMutex);
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "SignalUtil::wait mIsWaiting:%d", 1);
        return -2;
    }
    mIsWaiting = true;
    struct timeval now;
    gettimeofday(&now, nullptr);
    const struct timespec deadline = deadlineFrom(now, milliSecond);
    const uint64_t generation = takeStartGeneration();
    while (generation == mGeneration) {
        if (pthread_cond_timedwait(&mCond, &mMutex, &deadline) == ETIMEDOUT) break;
    }
    mIsWaiting = false;
    pthread_mutex_unlock(&mMutex);
    return 0;
}

void SignalUtil::signal() {
    pthread_mutex_lock(&mMutex);
    if (!mIsWaiting && !mIsArmed) {
        pthread_mutex_unlock(&mMutex);
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "SignalUtil::signal mIsWaiting:%d", 0);
        return;
    }
    ++mGeneration;
    pthread_cond_signal(&mCond);
    pthread_mutex_unlock(&mMutex);
}

void SignalUtil::arm() {
    pthread_mutex_lock(&mMutex);
    mIsArmed = true;
    mArmedGeneration = mGeneration;
    pthread_mutex_unlock(&mMutex);
}

uint64_t SignalUtil::takeStartGeneration() {
    if (!mIsArmed) return mGeneration;
    mIsArmed = false;
    return mArmedGeneration;
}

bool SignalUtil::isWaiting() {
    pthread_mutex_lock(&mMutex);
    const bool waiting = mIsWaiting;
    pthread_mutex_unlock(&mMutex);
    return waiting;
}

}  // namespace lumacast
}  // namespace android
