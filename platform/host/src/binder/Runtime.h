#pragma once

#include <binder/BpBinder.h>
#include <binder/IBinder.h>
#include <stddef.h>
#include <stdint.h>
#include <utils/String16.h>

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "Session.h"
#include "Wire.h"

namespace android {
namespace hostbinder {

// The threads that serve incoming calls. Threads are added while calls wait and no
// thread is idle, once the pool was started, up to the maximum; they never exit.
class ThreadPool {
  public:
    struct Job {
        sp<Session> session;
        Incoming message;
        bool drainAsync = false;
        // Set for an obituary: the proxy whose recipients are told.
        sp<BpBinder> dead;
    };

    void enqueue(Job&& job);
    void start();
    void spawn(bool isMain);
    // Serves jobs on the calling thread for good.
    [[noreturn]] void join();
    status_t setMaxThreads(size_t maxThreads);
    size_t maxThreads() const;

  private:
    void spawnLocked(bool isMain);

    mutable std::mutex mLock;
    std::condition_variable mCv;
    std::deque<Job> mQueue;
    size_t mIdle = 0;
    size_t mSpawned = 0;
    size_t mMaxThreads = 15;
    bool mStarted = false;
    uint32_t mThreadSeq = 0;
};

// Everything binder-related that one process owns. Made on first use and never
// destroyed; a forked child drops its parent's (sockets closed, no I/O) and starts afresh.
class Runtime {
  public:
    static Runtime& get();
    // Bumped in every forked child; objects of an older generation are dead there.
    static uint64_t generation();

    const std::string& token() const { return mToken; }
    const std::string& binderDir() const { return mDir; }
    ThreadPool& pool() { return mPool; }

    // The session with the process that owns token; connects when there is none.
    sp<Session> sessionFor(const std::string& token);
    void registerSession(const std::string& token, const sp<Session>& session);
    void unregisterSession(const std::string& token, Session* session);

    status_t addService(const String16& name, const sp<IBinder>& service, int dumpPriority);
    sp<IBinder> checkService(const String16& name);
    Vector<String16> listServices(int dumpPriority);
    // What this process itself registered under name.
    sp<IBinder> localService(const String16& name);

    // Descriptors that a forked child must close before anything else happens.
    static void trackFd(int fd);
    static void untrackFd(int fd);

  private:
    Runtime();

    status_t ensureEndpointLocked();
    void acceptLoop(int listenFd);
    std::string socketPathFor(const std::string& token) const;
    std::string serviceFileFor(const std::string& name) const;
    bool readServiceFile(const std::string& name, std::string* token, int* priority) const;
    void removeOwnFiles();

    static void atforkPrepare();
    static void atforkParent();
    static void atforkChild();

    const pid_t mPid;
    std::string mToken;
    std::string mDir;
    ThreadPool mPool;

    std::mutex mLock;
    std::map<std::string, sp<Session>> mSessions;
    std::map<std::string, sp<IBinder>> mLocalServices;
    int mListenFd = -1;

    std::mutex mConnectLock;
};

}  // namespace hostbinder
}  // namespace android
