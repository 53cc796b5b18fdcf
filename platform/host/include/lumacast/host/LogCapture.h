#pragma once

#include <android/log.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace lumacast::host {

struct LogEntry {
    int prio;
    std::string tag;
    std::string text;
};

// Records every log line written in this process while it lives. Several captures may
// be alive at once; each sees every line.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogEntry> entries() const;
    void clear();
    // Number of lines whose text is exactly `text` (and whose priority is `prio`, if >= 0).
    size_t count(std::string_view text, int prio = -1) const;
    bool contains(std::string_view text, int prio = -1) const { return count(text, prio) > 0; }
    // Number of lines whose text contains `part`.
    size_t countContaining(std::string_view part) const;
    // Waits until `count(text, prio) >= n`; false on time-out.
    bool waitFor(std::string_view text, std::chrono::milliseconds timeout, size_t n = 1,
                 int prio = -1) const;
    // Index of the first line with exactly this text at or after `from`, or -1.
    long indexOf(std::string_view text, size_t from = 0) const;

    void add(int prio, const char* tag, const char* text);

private:
    size_t countLocked(std::string_view text, int prio) const;

    mutable std::mutex mMutex;
    mutable std::condition_variable mCond;
    std::vector<LogEntry> mEntries;
};

}  // namespace lumacast::host
