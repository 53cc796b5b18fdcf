#include "tools/lumacastctl/Listener.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/camsim/Recording.h"

using android::binder::Status;

namespace lumacast::ctl {

namespace {

// Longest AI text printed whole on its line.
constexpr size_t kMaxShownText = 200;
// Leading bytes of a protobuf block shown in hex.
constexpr size_t kShownBytes = 16;

// One line of text: control characters become '.', long texts are cut.
std::string printable(const std::string& text) {
    std::string out;
    const size_t n = text.size() < kMaxShownText ? text.size() : kMaxShownText;
    out.reserve(n);
    for (size_t i = 0; i < n; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        out += (c < 0x20 || c == 0x7f) ? '.' : static_cast<char>(c);
    }
    if (text.size() > n) out += "... (" + std::to_string(text.size()) + " bytes)";
    return out;
}

std::string hexHead(const std::vector<uint8_t>& data) {
    std::string out;
    char buf[4];
    for (size_t i = 0; i < data.size() && i < kShownBytes; ++i) {
        snprintf(buf, sizeof(buf), i == 0 ? "%02x" : " %02x", data[i]);
        out += buf;
    }
    if (data.size() > kShownBytes) out += " ...";
    return out;
}

std::string humanBytes(double bytes) {
    char buf[32];
    if (bytes >= 1024.0 * 1024.0) {
        snprintf(buf, sizeof(buf), "%.1f MiB", bytes / (1024.0 * 1024.0));
    } else if (bytes >= 1024.0) {
        snprintf(buf, sizeof(buf), "%.1f KiB", bytes / 1024.0);
    } else {
        snprintf(buf, sizeof(buf), "%.0f B", bytes);
    }
    return buf;
}

}  // namespace

Listener::Listener(const ListenOptions& options, FILE* out, std::function<void()> onLimit)
    : mOptions(options),
      mOut(out),
      mOnLimit(std::move(onLimit)),
      mStart(std::chrono::steady_clock::now()),
      mLastTime(mStart) {}

const char* Listener::kindName(Kind kind) {
    switch (kind) {
        case kFrame:
            return "frame";
        case kAi:
            return "ai";
        case kProto:
            return "proto";
        case kKindCount:
            break;
    }
    return "?";
}

double Listener::elapsed() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
}

uint64_t Listener::record(Kind kind, size_t bytes) {
    bool limitReached = false;
    uint64_t n = 0;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        n = ++mCounts.events[kind];
        mCounts.bytes[kind] += bytes;
        if (mOptions.count != 0 && !mLimitReported && mCounts.total() >= mOptions.count) {
            mLimitReported = true;
            limitReached = true;
        }
    }
    if (limitReached && mOnLimit) mOnLimit();
    return n;
}

std::string Listener::save(const char* prefix, uint64_t n, const char* suffix, const void* data,
                           size_t len) {
    char name[64];
    snprintf(name, sizeof(name), "/%s-%06llu%s", prefix, static_cast<unsigned long long>(n),
             suffix);
    const std::string path = mOptions.saveDir + name;
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    bool ok = fd >= 0 && writeAll(fd, data, len);
    const int err = errno;
    if (fd >= 0 && close(fd) != 0) ok = false;
    if (ok) return path;
    std::lock_guard<std::mutex> lock(mMutex);
    saveFailed(path, err);
    return "";
}

bool Listener::writeAll(int fd, const void* data, size_t len) {
    const char* bytes = static_cast<const char*>(data);
    size_t done = 0;
    while (done < len) {
        const ssize_t w = write(fd, bytes + done, len - done);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return false;
        done += static_cast<size_t>(w);
    }
    return true;
}

void Listener::saveFailed(const std::string& path, int err) {
    if (mSaveFailures++ == 0) {
        fprintf(stderr, "lumacastctl: cannot write %s: %s\n", path.c_str(), strerror(err));
    }
}

Listener::~Listener() {
    if (mRecordFd >= 0) close(mRecordFd);
}

bool Listener::openRecording(std::string* why) {
    const std::string& path = mOptions.recordPath;
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0 || !writeAll(fd, camsim::Recording::kMagic, camsim::Recording::kMagicLen)) {
        *why = path + ": " + strerror(errno);
        if (fd >= 0) close(fd);
        return false;
    }
    std::lock_guard<std::mutex> lock(mMutex);
    mRecordFd = fd;
    return true;
}

void Listener::keep(uint32_t kind, int32_t blockCount, int32_t blockParam, const void* data,
                    size_t len) {
    if (mOptions.recordPath.empty()) return;
    camsim::RecordedCallback r;
    r.kind = kind;
    r.blockCount = blockCount;
    r.blockParam = blockParam;
    r.offsetUs = static_cast<uint64_t>(elapsed() * 1e6);
    r.data.assign(static_cast<const char*>(data), len);
    const std::string bytes = camsim::Recording::encode(r);
    std::lock_guard<std::mutex> lock(mMutex);
    // In arrival order: the daemon calls a listener one callback at a time.
    if (mRecordFd >= 0 && !writeAll(mRecordFd, bytes.data(), bytes.size())) {
        saveFailed(mOptions.recordPath, errno);
    }
}

Status Listener::onAiData(const std::string& data) {
    const uint64_t n = record(kAi, data.size());
    keep(camsim::kTypeAiJson, 0, 0, data.data(), data.size());
    std::string saved;
    if (!mOptions.saveDir.empty()) saved = save("ai", n, ".json", data.data(), data.size());
    if (!mOptions.quiet) {
        std::lock_guard<std::mutex> lock(mMutex);
        fprintf(mOut, "+%.3fs ai #%llu %s%s%s\n", elapsed(), static_cast<unsigned long long>(n),
                printable(data).c_str(), saved.empty() ? "" : " -> ", saved.c_str());
    }
    return Status::ok();
}

Status Listener::onProtoBuf(const std::vector<uint8_t>& data) {
    const uint64_t n = record(kProto, data.size());
    keep(camsim::kTypeAiProtobuf, 0, 0, data.data(), data.size());
    std::string saved;
    if (!mOptions.saveDir.empty()) saved = save("proto", n, ".bin", data.data(), data.size());
    if (!mOptions.quiet) {
        std::lock_guard<std::mutex> lock(mMutex);
        fprintf(mOut, "+%.3fs proto #%llu bytes=%zu [%s]%s%s\n", elapsed(),
                static_cast<unsigned long long>(n), data.size(), hexHead(data).c_str(),
                saved.empty() ? "" : " -> ", saved.c_str());
    }
    return Status::ok();
}

Status Listener::onFrame(int32_t blockCount, int32_t blockParam, const std::vector<uint8_t>& data) {
    const uint64_t n = record(kFrame, data.size());
    keep(camsim::kTypeFrame, blockCount, blockParam, data.data(), data.size());
    std::string saved;
    if (!mOptions.saveDir.empty()) saved = save("frame", n, ".bin", data.data(), data.size());
    if (!mOptions.quiet) {
        std::lock_guard<std::mutex> lock(mMutex);
        fprintf(mOut, "+%.3fs frame #%llu blockCount=%d blockParam=%d bytes=%zu%s%s\n", elapsed(),
                static_cast<unsigned long long>(n), blockCount, blockParam, data.size(),
                saved.empty() ? "" : " -> ", saved.c_str());
    }
    return Status::ok();
}

Listener::Counts Listener::counts() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mCounts;
}

uint64_t Listener::saveFailures() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mSaveFailures;
}

void Listener::printInterval() {
    std::lock_guard<std::mutex> lock(mMutex);
    const auto now = std::chrono::steady_clock::now();
    const double span = std::chrono::duration<double>(now - mLastTime).count();
    const double total = std::chrono::duration<double>(now - mStart).count();
    std::string line;
    char buf[96];
    for (int k = 0; k < kKindCount; ++k) {
        const uint64_t delta = mCounts.events[k] - mLastCounts.events[k];
        snprintf(buf, sizeof(buf), " %s=%llu (%.1f/s)", kindName(static_cast<Kind>(k)),
                 static_cast<unsigned long long>(mCounts.events[k]),
                 span > 0 ? static_cast<double>(delta) / span : 0.0);
        line += buf;
    }
    fprintf(mOut, "rates at %.1f s:%s\n", total, line.c_str());
    mLastCounts = mCounts;
    mLastTime = now;
}

void Listener::printSummary() {
    const double seconds = elapsed();
    std::lock_guard<std::mutex> lock(mMutex);
    fprintf(mOut, "listened %.2f s, %llu callbacks\n", seconds,
            static_cast<unsigned long long>(mCounts.total()));
    std::string counts;
    for (int k = 0; k < kKindCount; ++k) {
        const double events = static_cast<double>(mCounts.events[k]);
        const double bytes = static_cast<double>(mCounts.bytes[k]);
        fprintf(mOut, "  %-5s %8llu  %8.1f/s  %10s  %10s/s\n", kindName(static_cast<Kind>(k)),
                static_cast<unsigned long long>(mCounts.events[k]),
                seconds > 0 ? events / seconds : 0.0, humanBytes(bytes).c_str(),
                humanBytes(seconds > 0 ? bytes / seconds : 0.0).c_str());
        counts += std::string(k == 0 ? "" : " ") + kindName(static_cast<Kind>(k)) + "=" +
                  std::to_string(mCounts.events[k]);
    }
    // One line for scripts.
    fprintf(mOut, "counts: %s\n", counts.c_str());
    fflush(mOut);
}

std::string Listener::shortfall() const {
    std::lock_guard<std::mutex> lock(mMutex);
    std::string missing;
    auto add = [&](const std::string& what) { missing += (missing.empty() ? "" : "; ") + what; };
    if (mOptions.count != 0 && mCounts.total() < mOptions.count) {
        add("stopped after " + std::to_string(mCounts.total()) + " of " +
            std::to_string(mOptions.count) + " callbacks (--count)");
    }
    const bool required[kKindCount] = {mOptions.requireFrame, mOptions.requireAi,
                                       mOptions.requireProto};
    for (int k = 0; k < kKindCount; ++k) {
        if (required[k] && mCounts.events[k] == 0) {
            add(std::string("no ") + kindName(static_cast<Kind>(k)) + " arrived (--require)");
        }
    }
    if (mSaveFailures != 0) {
        add(std::to_string(mSaveFailures) + " callbacks could not be saved (--save)");
    }
    return missing;
}

bool Listener::prepareSaveDir(const std::string& dir, std::string* why) {
    if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) {
        *why = strerror(errno);
        return false;
    }
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) {
        *why = strerror(errno);
        return false;
    }
    // Files of an earlier run would pass for this run's: numbering starts at 1 every time.
    bool empty = true;
    while (struct dirent* e = readdir(d)) {
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) {
            empty = false;
            break;
        }
    }
    closedir(d);
    if (!empty) *why = "it already holds files; give an empty or new folder";
    return empty;
}

}  // namespace lumacast::ctl
