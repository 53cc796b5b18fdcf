#define LOG_TAG "HostBinder"

#include "Runtime.h"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <log/log.h>
#include <lumacast/host/BinderDir.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <vector>

namespace android {
namespace hostbinder {

// ---- thread pool ----

void ThreadPool::enqueue(Job&& job) {
    std::lock_guard<std::mutex> lock(mLock);
    mQueue.push_back(std::move(job));
    // Like the driver asking for another looper when every thread is busy.
    if (mStarted && mQueue.size() > mIdle && mSpawned < mMaxThreads) spawnLocked(false);
    mCv.notify_one();
}

void ThreadPool::start() {
    std::lock_guard<std::mutex> lock(mLock);
    if (mStarted) return;
    mStarted = true;
    spawnLocked(true);
}

void ThreadPool::spawn(bool isMain) {
    std::lock_guard<std::mutex> lock(mLock);
    spawnLocked(isMain);
}

void ThreadPool::spawnLocked(bool isMain) {
    if (!isMain) ++mSpawned;
    const uint32_t seq = ++mThreadSeq;
    std::thread([this, seq] {
        char name[16];
        snprintf(name, sizeof(name), "binder:%d_%X", getpid() % 100000, seq);
        pthread_setname_np(pthread_self(), name);
        join();
    }).detach();
}

void ThreadPool::join() {
    for (;;) {
        Job job;
        {
            std::unique_lock<std::mutex> lock(mLock);
            ++mIdle;
            mCv.wait(lock, [this] { return !mQueue.empty(); });
            --mIdle;
            job = std::move(mQueue.front());
            mQueue.pop_front();
        }
        if (job.dead != nullptr) {
            job.dead->sendObituary();
        } else if (job.drainAsync) {
            job.session->drainAsync();
        } else {
            job.session->execute(std::move(job.message));
        }
    }
}

status_t ThreadPool::setMaxThreads(size_t maxThreads) {
    std::lock_guard<std::mutex> lock(mLock);
    mMaxThreads = maxThreads;
    return OK;
}

size_t ThreadPool::maxThreads() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mMaxThreads;
}

// ---- descriptors a forked child must drop ----

namespace {

pthread_mutex_t gFdLock = PTHREAD_MUTEX_INITIALIZER;
std::vector<int>* gTrackedFds = new std::vector<int>();

pthread_mutex_t gRuntimeLock = PTHREAD_MUTEX_INITIALIZER;
std::atomic<Runtime*> gRuntime{nullptr};
std::atomic<uint64_t> gGeneration{1};
// Runtimes dropped by forked children stay reachable: they are abandoned, not leaked.
std::vector<Runtime*>* gAbandoned = new std::vector<Runtime*>();

std::string makeToken() {
    uint8_t random[8] = {};
    if (getrandom(random, sizeof(random), 0) != static_cast<ssize_t>(sizeof(random))) {
        const uint64_t fallback =
                static_cast<uint64_t>(time(nullptr)) ^ reinterpret_cast<uintptr_t>(&random);
        memcpy(random, &fallback, sizeof(random));
    }
    char buf[48];
    int n = snprintf(buf, sizeof(buf), "%d-", getpid());
    for (uint8_t b : random) n += snprintf(buf + n, sizeof(buf) - n, "%02x", b);
    return std::string(buf, static_cast<size_t>(n));
}

bool isValidServiceName(const std::string& name) {
    if (name.empty() || name.size() > 127) return false;
    return std::all_of(name.begin(), name.end(), [](char c) {
        return c == '_' || c == '-' || c == '.' || c == '/' || (c >= 'a' && c <= 'z') ||
               (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    });
}

bool fillSocketAddress(const std::string& path, sockaddr_un* addr) {
    memset(addr, 0, sizeof(*addr));
    addr->sun_family = AF_UNIX;
    if (path.size() >= sizeof(addr->sun_path)) {
        ALOGE("Binder socket path too long: %s", path.c_str());
        return false;
    }
    memcpy(addr->sun_path, path.c_str(), path.size() + 1);
    return true;
}

}  // namespace

void Runtime::trackFd(int fd) {
    pthread_mutex_lock(&gFdLock);
    gTrackedFds->push_back(fd);
    pthread_mutex_unlock(&gFdLock);
}

void Runtime::untrackFd(int fd) {
    pthread_mutex_lock(&gFdLock);
    auto it = std::find(gTrackedFds->begin(), gTrackedFds->end(), fd);
    if (it != gTrackedFds->end()) gTrackedFds->erase(it);
    pthread_mutex_unlock(&gFdLock);
}

void Runtime::atforkPrepare() {
    pthread_mutex_lock(&gRuntimeLock);
    pthread_mutex_lock(&gFdLock);
}

void Runtime::atforkParent() {
    pthread_mutex_unlock(&gFdLock);
    pthread_mutex_unlock(&gRuntimeLock);
}

void Runtime::atforkChild() {
    // The child has none of the parent's threads: its sockets would be shared with the
    // parent and keep the parent's peers from seeing the parent die. Close them and
    // start afresh on first use.
    for (int fd : *gTrackedFds) close(fd);
    gTrackedFds->clear();
    Runtime* old = gRuntime.exchange(nullptr);
    if (old != nullptr) gAbandoned->push_back(old);
    gGeneration.fetch_add(1);
    pthread_mutex_unlock(&gFdLock);
    pthread_mutex_unlock(&gRuntimeLock);
}

uint64_t Runtime::generation() { return gGeneration.load(std::memory_order_acquire); }

Runtime& Runtime::get() {
    Runtime* r = gRuntime.load(std::memory_order_acquire);
    if (r != nullptr) return *r;
    static const int registered = pthread_atfork(atforkPrepare, atforkParent, atforkChild);
    (void)registered;
    pthread_mutex_lock(&gRuntimeLock);
    r = gRuntime.load(std::memory_order_acquire);
    if (r == nullptr) {
        r = new Runtime();
        gRuntime.store(r, std::memory_order_release);
    }
    pthread_mutex_unlock(&gRuntimeLock);
    return *r;
}

Runtime::Runtime() : mPid(getpid()), mToken(makeToken()), mDir(lumacast::host::binderDir()) {}

// ---- registry files and the endpoint ----

std::string Runtime::socketPathFor(const std::string& token) const {
    return mDir + "/" + token + ".sock";
}

std::string Runtime::serviceFileFor(const std::string& name) const {
    std::string file = name;
    // '@' cannot occur in a service name, '/' cannot occur in a file name.
    std::replace(file.begin(), file.end(), '/', '@');
    return mDir + "/service." + file;
}

bool Runtime::readServiceFile(const std::string& name, std::string* token, int* priority) const {
    FILE* f = fopen(serviceFileFor(name).c_str(), "re");
    if (f == nullptr) return false;
    char tokenBuf[kMaxTokenSize + 1] = {};
    int prio = 0;
    const int n = fscanf(f, "%64s %d", tokenBuf, &prio);
    fclose(f);
    if (n != 2) return false;
    *token = tokenBuf;
    *priority = prio;
    return true;
}

status_t Runtime::ensureEndpointLocked() {
    if (mListenFd >= 0) return OK;
    if (mkdir(mDir.c_str(), 0700) != 0 && errno != EEXIST) {
        ALOGE("Cannot create binder directory %s: %s", mDir.c_str(), strerror(errno));
        return -errno;
    }
    sockaddr_un addr;
    const std::string path = socketPathFor(mToken);
    if (!fillSocketAddress(path, &addr)) return BAD_VALUE;
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.ok()) return -errno;
    unlink(path.c_str());
    if (bind(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
        listen(fd.get(), 64) != 0) {
        const int err = errno;
        ALOGE("Cannot listen on %s: %s", path.c_str(), strerror(err));
        return -err;
    }
    mListenFd = fd.release();
    trackFd(mListenFd);
    const int listenFd = mListenFd;
    std::thread([this, listenFd] {
        pthread_setname_np(pthread_self(), "binderAccept");
        acceptLoop(listenFd);
    }).detach();
    static const int cleanup = atexit([] {
        Runtime* r = gRuntime.load(std::memory_order_acquire);
        if (r != nullptr && r->mPid == getpid()) r->removeOwnFiles();
    });
    (void)cleanup;
    return OK;
}

void Runtime::acceptLoop(int listenFd) {
    for (;;) {
        const int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                usleep(100 * 1000);
                continue;
            }
            ALOGE("Binder endpoint stops accepting: %s", strerror(errno));
            return;
        }
        Session::start(UniqueFd(fd), std::string());
    }
}

void Runtime::removeOwnFiles() {
    std::vector<std::string> names;
    {
        std::lock_guard<std::mutex> lock(mLock);
        for (const auto& entry : mLocalServices) names.push_back(entry.first);
    }
    for (const std::string& name : names) {
        std::string token;
        int prio;
        // Somebody else may have taken the name over since.
        if (readServiceFile(name, &token, &prio) && token == mToken) {
            unlink(serviceFileFor(name).c_str());
        }
    }
    unlink(socketPathFor(mToken).c_str());
}

// ---- sessions ----

sp<Session> Runtime::sessionFor(const std::string& token) {
    std::lock_guard<std::mutex> connectLock(mConnectLock);
    {
        std::lock_guard<std::mutex> lock(mLock);
        auto it = mSessions.find(token);
        if (it != mSessions.end() && it->second->isAlive()) return it->second;
    }
    sockaddr_un addr;
    if (!fillSocketAddress(socketPathFor(token), &addr)) return nullptr;
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.ok()) return nullptr;
    int rc;
    do {
        rc = connect(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
    } while (rc != 0 && errno == EINTR);
    // A process that is gone leaves its socket file behind: refused, not found.
    if (rc != 0) return nullptr;
    sp<Session> session = Session::start(std::move(fd), token);
    registerSession(token, session);
    return session;
}

void Runtime::registerSession(const std::string& token, const sp<Session>& session) {
    std::lock_guard<std::mutex> lock(mLock);
    auto it = mSessions.find(token);
    if (it == mSessions.end() || !it->second->isAlive()) mSessions[token] = session;
}

void Runtime::unregisterSession(const std::string& token, Session* session) {
    sp<Session> dropped;
    std::lock_guard<std::mutex> lock(mLock);
    auto it = mSessions.find(token);
    if (it != mSessions.end() && it->second.get() == session) {
        dropped = std::move(it->second);
        mSessions.erase(it);
    }
    // The caller still holds the session, so this is never the last reference.
}

// ---- services ----

status_t Runtime::addService(const String16& name16, const sp<IBinder>& service, int dumpPriority) {
    const std::string name = String8(name16).c_str();
    if (!isValidServiceName(name) || String16(name.c_str()) != name16) {
        ALOGE("Invalid service name '%s'", name.c_str());
        return BAD_VALUE;
    }
    if (service == nullptr) return UNEXPECTED_NULL;
    if (service->localBinder() == nullptr) {
        ALOGE("Only objects of this process can be added as services ('%s')", name.c_str());
        return INVALID_OPERATION;
    }
    std::lock_guard<std::mutex> lock(mLock);
    status_t err = ensureEndpointLocked();
    if (err != OK) return err;
    mLocalServices[name] = service;

    const std::string file = serviceFileFor(name);
    const std::string tmp = file + ".tmp." + mToken;
    FILE* f = fopen(tmp.c_str(), "we");
    if (f == nullptr) return -errno;
    const bool written = fprintf(f, "%s %d\n", mToken.c_str(), dumpPriority) > 0;
    if (fclose(f) != 0 || !written || rename(tmp.c_str(), file.c_str()) != 0) {
        const int e = errno;
        unlink(tmp.c_str());
        ALOGE("Cannot publish service '%s': %s", name.c_str(), strerror(e));
        return e ? -e : UNKNOWN_ERROR;
    }
    return OK;
}

sp<IBinder> Runtime::localService(const String16& name) {
    std::lock_guard<std::mutex> lock(mLock);
    auto it = mLocalServices.find(String8(name).c_str());
    return it == mLocalServices.end() ? nullptr : it->second;
}

sp<IBinder> Runtime::checkService(const String16& name16) {
    if (sp<IBinder> local = localService(name16)) return local;
    const std::string name = String8(name16).c_str();
    if (!isValidServiceName(name)) return nullptr;
    std::string token;
    int prio;
    if (!readServiceFile(name, &token, &prio) || token == mToken) return nullptr;
    sp<Session> session = sessionFor(token);
    if (session == nullptr) return nullptr;
    sp<IBinder> service;
    if (session->getService(name16, &service) != OK) return nullptr;
    return service;
}

Vector<String16> Runtime::listServices(int dumpPriority) {
    std::vector<std::string> names;
    DIR* d = opendir(mDir.c_str());
    if (d != nullptr) {
        static const char kPrefix[] = "service.";
        while (dirent* e = readdir(d)) {
            const std::string file = e->d_name;
            if (file.compare(0, sizeof(kPrefix) - 1, kPrefix) != 0) continue;
            if (file.find(".tmp.") != std::string::npos) continue;
            std::string name = file.substr(sizeof(kPrefix) - 1);
            std::replace(name.begin(), name.end(), '@', '/');
            names.push_back(name);
        }
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    Vector<String16> result;
    for (const std::string& name : names) {
        std::string token;
        int prio = 0;
        if (!readServiceFile(name, &token, &prio) || (prio & dumpPriority) == 0) continue;
        // Only services whose process is still there.
        const bool alive = token == mToken ? localService(String16(name.c_str())) != nullptr
                                           : sessionFor(token) != nullptr;
        if (alive) result.add(String16(name.c_str()));
    }
    return result;
}

}  // namespace hostbinder
}  // namespace android

namespace lumacast::host {

std::string binderDir() {
    const char* dir = getenv("LUMACAST_BINDER_DIR");
    if (dir != nullptr && dir[0] != '\0') return dir;
    return "/tmp/lumacast-binder-" + std::to_string(getuid());
}

}  // namespace lumacast::host
