#pragma once

#include <binder/Status.h>
#include <kora/lumacast/BnLumacastCallback.h>
#include <stdint.h>
#include <stdio.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace lumacast::ctl {

struct ListenOptions {
    uint64_t count = 0;   // stop after this many callbacks; 0: no limit
    double seconds = 0;   // stop after this long; 0: no limit
    std::string saveDir;  // where to write what arrives; empty: nowhere
    bool quiet = false;   // no line per callback
    double interval = 0;  // seconds between rate lines; 0: none
    bool requireFrame = false;
    bool requireAi = false;
    bool requireProto = false;

    // Every callback with its time, for camsim --replay; empty: none.
    std::string recordPath;
};

// The listener that `lumacastctl listen` registers: prints each callback, counts them and
// their bytes, saves them if asked, and reports rates.
class Listener : public kora::lumacast::BnLumacastCallback {
  public:
    enum Kind { kFrame, kAi, kProto, kKindCount };

    struct Counts {
        uint64_t events[kKindCount] = {};
        uint64_t bytes[kKindCount] = {};
        uint64_t total() const { return events[kFrame] + events[kAi] + events[kProto]; }
    };

    // `onLimit` runs once, on the calling binder thread, when --count is reached.
    Listener(const ListenOptions& options, FILE* out, std::function<void()> onLimit);
    ~Listener() override;

    // Creates the --record file; false with the reason.
    bool openRecording(std::string* why);

    android::binder::Status onAiData(const std::string& data) override;
    android::binder::Status onProtoBuf(const std::vector<uint8_t>& data) override;
    android::binder::Status onFrame(int32_t blockCount, int32_t blockParam,
                                    const std::vector<uint8_t>& data) override;

    Counts counts() const;
    uint64_t saveFailures() const;
    // The line of counts and rates since the previous call of this.
    void printInterval();
    // Counts, rates and bytes over the whole run.
    void printSummary();
    // What the run missed of --count, --require and --save, one clause each; empty when
    // it met them all.
    std::string shortfall() const;

    // Makes `dir` ready for --save: created if missing, refused unless empty.
    static bool prepareSaveDir(const std::string& dir, std::string* why);

    static const char* kindName(Kind kind);

  private:
    // Counts one callback and returns its number within its kind (from 1).
    uint64_t record(Kind kind, size_t bytes);
    // Writes one file into the save folder; the path, or empty after a failure.
    std::string save(const char* prefix, uint64_t n, const char* suffix, const void* data,
                     size_t len);
    // Appends one callback to the --record file.
    void keep(uint32_t kind, int32_t blockCount, int32_t blockParam, const void* data, size_t len);
    bool writeAll(int fd, const void* data, size_t len);
    // Tells of a failed write once; the count goes into the summary and the exit status.
    void saveFailed(const std::string& path, int err);
    double elapsed() const;

    const ListenOptions mOptions;
    FILE* const mOut;
    const std::function<void()> mOnLimit;
    const std::chrono::steady_clock::time_point mStart;

    mutable std::mutex mMutex;
    Counts mCounts;                                   // guarded by mMutex
    Counts mLastCounts;                               // guarded by mMutex
    std::chrono::steady_clock::time_point mLastTime;  // guarded by mMutex
    uint64_t mSaveFailures = 0;                       // guarded by mMutex
    bool mLimitReported = false;                      // guarded by mMutex
    int mRecordFd = -1;                               // guarded by mMutex
};

}  // namespace lumacast::ctl
