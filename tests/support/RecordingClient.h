#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "util/ILumacastClient.h"

namespace lumacast::test {

// Stands in for the streaming service's adapter: records every call by name, in order,
// together with what an optional probe saw at that moment (for instance the network state
// when processCameraAdd arrives). Thread-safe.
class RecordingClient : public android::lumacast::ILumacastClient {
public:
    struct Call {
        std::string name;
        std::string probe;
    };

    // Runs on the calling thread inside every recorded call.
    void setProbe(std::function<std::string()> probe) {
        std::lock_guard<std::mutex> lock(mMutex);
        mProbe = std::move(probe);
    }

    void processCameraAdd() override { record("processCameraAdd"); }
    void processCameraRemove() override { record("processCameraRemove"); }
    int checkAlive() override {
        record("checkAlive");
        return 0;
    }
    int processResult(unsigned char*, int) override {
        record("processResult");
        return 0;
    }
    int processAiJson(unsigned char*, int) override {
        record("processAiJson");
        return 0;
    }
    int processAiProtobuf(unsigned char*, int) override {
        record("processAiProtobuf");
        return 0;
    }
    int processFrame(int, int, unsigned char*, int) override {
        record("processFrame");
        return 0;
    }
    int getCallbackSize() override {
        record("getCallbackSize");
        return 0;
    }

    std::vector<Call> calls() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mCalls;
    }
    size_t count(const std::string& name) const {
        std::lock_guard<std::mutex> lock(mMutex);
        return countLocked(name);
    }
    // Waits until `name` has been called at least `n` times; false on time-out.
    bool waitFor(const std::string& name, size_t n,
                 std::chrono::milliseconds timeout = std::chrono::seconds(10)) const {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCond.wait_for(lock, timeout, [&] { return countLocked(name) >= n; });
    }

private:
    void record(const char* name) {
        std::function<std::string()> probe;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            probe = mProbe;
        }
        Call call{name, probe ? probe() : std::string()};
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mCalls.push_back(std::move(call));
        }
        mCond.notify_all();
    }
    size_t countLocked(const std::string& name) const {
        size_t n = 0;
        for (const auto& c : mCalls) n += c.name == name ? 1 : 0;
        return n;
    }

    mutable std::mutex mMutex;
    mutable std::condition_variable mCond;
    std::function<std::string()> mProbe;
    std::vector<Call> mCalls;
};

}  // namespace lumacast::test
