#include <android/log.h>
#include <lumacast/host/LogCapture.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace {

std::mutex& capturesMutex() {
    static std::mutex m;
    return m;
}
std::vector<lumacast::host::LogCapture*>& captures() {
    static std::vector<lumacast::host::LogCapture*> v;
    return v;
}

char priorityLetter(int prio) {
    static const char kLetters[] = "??VDIWEFS";
    return (prio >= 0 && prio <= ANDROID_LOG_SILENT) ? kLetters[prio] : '?';
}

bool stderrQuiet() {
    static const bool quiet = [] {
        const char* v = getenv("LUMACAST_LOG_QUIET");
        return v != nullptr && v[0] != '\0' && v[0] != '0';
    }();
    return quiet;
}

// logcat -v threadtime: "MM-DD hh:mm:ss.mmm  PID  TID P TAG: text"; one write per line so
// lines of different threads never interleave.
void writeStderr(int prio, const char* tag, const char* text) {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    struct tm tm;
    localtime_r(&tv.tv_sec, &tm);
    char stamp[32];
    strftime(stamp, sizeof(stamp), "%m-%d %H:%M:%S", &tm);
    const size_t textLen = strlen(text);
    std::string line;
    line.reserve(textLen + 64);
    char head[128];
    snprintf(head, sizeof(head), "%s.%03ld %5d %5ld %c %s: ", stamp,
             static_cast<long>(tv.tv_usec / 1000), static_cast<int>(getpid()),
             static_cast<long>(syscall(SYS_gettid)), priorityLetter(prio), tag);
    line += head;
    line.append(text, textLen);
    if (line.empty() || line.back() != '\n') line += '\n';
    const char* p = line.data();
    size_t left = line.size();
    while (left > 0) {
        const ssize_t n = write(STDERR_FILENO, p, left);
        if (n <= 0) break;
        p += n;
        left -= static_cast<size_t>(n);
    }
}

}  // namespace

namespace lumacast::host {

LogCapture::LogCapture() {
    std::lock_guard<std::mutex> lock(capturesMutex());
    captures().push_back(this);
}

LogCapture::~LogCapture() {
    std::lock_guard<std::mutex> lock(capturesMutex());
    auto& v = captures();
    v.erase(std::remove(v.begin(), v.end(), this), v.end());
}

void LogCapture::add(int prio, const char* tag, const char* text) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mEntries.push_back(LogEntry{prio, tag, text});
    }
    mCond.notify_all();
}

std::vector<LogEntry> LogCapture::entries() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mEntries;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(mMutex);
    mEntries.clear();
}

size_t LogCapture::countLocked(std::string_view text, int prio) const {
    return static_cast<size_t>(std::count_if(mEntries.begin(), mEntries.end(), [&](const LogEntry& e) {
        return e.text == text && (prio < 0 || e.prio == prio);
    }));
}

size_t LogCapture::count(std::string_view text, int prio) const {
    std::lock_guard<std::mutex> lock(mMutex);
    return countLocked(text, prio);
}

size_t LogCapture::countContaining(std::string_view part) const {
    std::lock_guard<std::mutex> lock(mMutex);
    return static_cast<size_t>(std::count_if(mEntries.begin(), mEntries.end(), [&](const LogEntry& e) {
        return e.text.find(part) != std::string::npos;
    }));
}

bool LogCapture::waitFor(std::string_view text, std::chrono::milliseconds timeout, size_t n,
                         int prio) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mCond.wait_for(lock, timeout, [&] { return countLocked(text, prio) >= n; });
}

long LogCapture::indexOf(std::string_view text, size_t from) const {
    std::lock_guard<std::mutex> lock(mMutex);
    for (size_t i = from; i < mEntries.size(); ++i) {
        if (mEntries[i].text == text) return static_cast<long>(i);
    }
    return -1;
}

}  // namespace lumacast::host

extern "C" int __android_log_write(int prio, const char* tag, const char* text) {
    if (tag == nullptr) tag = "";
    if (text == nullptr) text = "";
    {
        std::lock_guard<std::mutex> lock(capturesMutex());
        for (auto* c : captures()) c->add(prio, tag, text);
    }
    if (!stderrQuiet()) writeStderr(prio, tag, text);
    return 1;
}

extern "C" int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
    // Same limit as logd's payload: longer texts are cut, never overrun.
    char buf[4068];
    vsnprintf(buf, sizeof(buf), fmt, ap);
    return __android_log_write(prio, tag, buf);
}

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    const int r = __android_log_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return r;
}

extern "C" void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...) {
    char buf[1024];
    if (fmt) {
        va_list ap;
        va_start(ap, fmt);
        vsnprintf(buf, sizeof(buf), fmt, ap);
        va_end(ap);
    } else {
        snprintf(buf, sizeof(buf), "Assertion failed: %s", cond ? cond : "");
    }
    __android_log_write(ANDROID_LOG_FATAL, tag, buf);
    abort();
}
