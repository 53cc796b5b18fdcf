#define LOG_TAG "lumacastservice"

#include "util/PThreadUtil.h"

#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <log/log.h>

namespace android {
namespace lumacast {

static constexpr useconds_t kBusyPollUs = 2000;

int PThreadUtil::Client::selfProcess(void*, void*) {
    if (mParent == nullptr) return -1;
    mParent->onProcess();
    return 0;
}

PThreadUtil::PThreadUtil(const char* threadName, ThreadObject* threadObject)
    : mThreadObject(nullptr),
      mClient(nullptr),
      mThread(),
      mIsInited(false),
      mIsBusy(false),
      mThreadName(threadName),
      mData(nullptr),
      mPending(false),
      mMutexInited(false) {
    if (threadObject == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "PThreadUtil nullptr == threadObject err");
        return;
    }
    if (threadName == nullptr || threadName[0] == '\0') {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "PThreadUtil nullptr == threadName err");
        return;
    }
    mClient = new Client(this);
    mThreadObject = threadObject;
    pthread_mutex_init(&mMutex, nullptr);
    pthread_cond_init(&mCond, nullptr);
    mMutexInited = true;
    // Set before the thread exists: the worker may end (and clear it) before
    // pthread_create returns.
    mIsInited = true;
    const int err = pthread_create(&mThread, nullptr, threadWork, mClient);
    if (err != 0) {
        mIsInited = false;
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "PThreadUtil %s pthread_create:%d",
                            mThreadName, err);
        delete mClient;
        mClient = nullptr;
    }
}

PThreadUtil::~PThreadUtil() {
    if (mClient == nullptr) {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "~PThreadUtil mIsInited:%d", 0);
        if (mMutexInited) {
            pthread_mutex_destroy(&mMutex);
            pthread_cond_destroy(&mCond);
        }
        return;
    }
    // The owner must have made a long-running item return first. Waiting for a pending
    // item as well keeps the stop request from overwriting it.
    for (;;) {
        pthread_mutex_lock(&mMutex);
        if (!mIsBusy && !mPending) {
            mData = nullptr;
            mPending = true;
            pthread_cond_signal(&mCond);
            pthread_mutex_unlock(&mMutex);
            break;
        }
        pthread_mutex_unlock(&mMutex);
        usleep(kBusyPollUs);
    }
    void* result = nullptr;
    pthread_join(mThread, &result);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "~PThreadUtil %s exitRet:%d", mThreadName,
                        threadExitValue(result));
    pthread_mutex_destroy(&mMutex);
    pthread_cond_destroy(&mCond);
    delete mClient;
    mClient = nullptr;
}

void PThreadUtil::process(void* data) {
    if (data == nullptr) {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "PThreadUtil::process %s nullptr == data",
                            mThreadName);
        return;
    }
    if (!mIsInited) {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "PThreadUtil::process %s mIsInited:%d",
                            mThreadName, 0);
        return;
    }
    // Concurrent callers are served one at a time: only one can find the slot free.
    for (;;) {
        pthread_mutex_lock(&mMutex);
        if (!mIsInited) {
            pthread_mutex_unlock(&mMutex);
            __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "PThreadUtil::process %s mIsInited:%d",
                                mThreadName, 0);
            return;
        }
        if (!mIsBusy && !mPending) {
            mData = data;
            mPending = true;
            pthread_cond_signal(&mCond);
            pthread_mutex_unlock(&mMutex);
            return;
        }
        pthread_mutex_unlock(&mMutex);
        usleep(kBusyPollUs);
    }
}

void* PThreadUtil::takeItem() {
    pthread_mutex_lock(&mMutex);
    mIsBusy = false;
    while (!mPending) pthread_cond_wait(&mCond, &mMutex);
    mPending = false;
    mIsBusy = true;
    void* item = mData;
    pthread_mutex_unlock(&mMutex);
    return item;
}

int PThreadUtil::onProcess(void*, void*) {
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "PThreadUtil::onProcess %s ", mThreadName);
    if (mThreadName[0] != '\0') prctl(PR_SET_NAME, mThreadName, 0, 0, 0);

    if (strcmp(mThreadName, "ThreadUEvent") == 0) {
        const int retInt = mThreadObject->selfProcess(const_cast<char*>(mThreadName),
                                                      const_cast<char*>(mThreadName));
        if (retInt != 0) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "PThreadUtil::onProcess %s retInt:%d",
                                mThreadName, retInt);
        }
    }

    void* item = takeItem();
    while (item != nullptr) {
        if (mThreadObject == nullptr) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                "PThreadUtil::onProcess %s nullptr == mThreadObject err",
                                mThreadName);
        } else {
            const int retInt = mThreadObject->selfProcess(item, const_cast<char*>(mThreadName));
            if (retInt != 0) {
                __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                    "PThreadUtil::onProcess %s retInt:%d", mThreadName, retInt);
            }
        }
        item = takeItem();
    }
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "PThreadUtil::onProcess %s mData is null",
                        mThreadName);
    pthread_mutex_lock(&mMutex);
    mIsInited = false;
    mIsBusy = false;
    pthread_mutex_unlock(&mMutex);
    return 0;
}

}  // namespace lumacast
}  // namespace android
