#pragma once

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <binder/Status.h>
#include <gtest/gtest.h>
#include <kora/lumacast/BnLumacastCallback.h>
#include <kora/lumacast/ILumacast.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/FakeDevice.h"
#include "tests/support/TestEnv.h"
#include "tools/demo/FakeTv.h"

namespace lumacast::e2e {

using android::sp;
using demo::FakeTv;
using kora::lumacast::ILumacast;
using namespace std::chrono_literals;

// Generous bounds: what the daemon does within them is the test, not how fast it does it.
constexpr int kPlugMs = 15000;
constexpr int kDataMs = 10000;

struct TvOptions {
    bool startDaemon = true;
    std::string devsimInit = "board cedar";
};

// Runs `body` in a child with mount and network namespaces of its own, on a fake TV whose
// lumacastd must still be running when the body is done. On a failure the daemon's log
// tail is printed.
inline void onFakeTv(const TvOptions& options, const std::function<void(FakeTv&)>& body) {
    static int sequence = 0;
    // Short: Unix socket paths live under it.
    const std::string dir = test::testTempDir() + "/tv" + std::to_string(++sequence);
    EXPECT_TRUE(test::runIsolated([&] {
        ASSERT_EQ(mkdir(dir.c_str(), 0755), 0) << dir;
        FakeTv tv(dir);
        std::string why;
        ASSERT_TRUE(tv.setUp(&why)) << why;
        if (options.startDaemon) {
            ASSERT_TRUE(tv.startDaemon(options.devsimInit, &why)) << why;
        }
        body(tv);
        // Whoever started it, a daemon that died on the way is a failure.
        if (tv.daemonPid() > 0) {
            EXPECT_TRUE(tv.daemonRunning(&why)) << why;
        }
        if (::testing::Test::HasFailure()) {
            const std::string log = tv.daemonLog();
            const size_t from = log.size() > 6000 ? log.size() - 6000 : 0;
            fprintf(stderr, "---- lumacastd log (end) ----\n%s\n", log.substr(from).c_str());
        }
    }));
}

inline void onFakeTv(const std::function<void(FakeTv&)>& body) { onFakeTv(TvOptions(), body); }

// Plugs the camera in and waits until the daemon has set it up.
inline void plugAndWait(FakeTv& tv, const test::UsbProduct& product = test::kAcceptedCamera,
                        const std::string& scene = "default") {
    std::string why;
    ASSERT_TRUE(tv.plug(product, scene, &why)) << why;
    ASSERT_TRUE(tv.waitForProperty("sys.kora.usb.status", "1", kPlugMs))
            << "the daemon did not report the camera";
}

// The daemon's streaming service, with a thread pool here for the listeners it calls.
inline sp<ILumacast> lumacastService() {
    android::ProcessState::self()->startThreadPool();
    return android::interface_cast<ILumacast>(
            android::defaultServiceManager()->getService(android::String16("lumacastservice")));
}

// A listener in this process, on the aidl tool's generated stub, keeping what arrives.
class RecordingListener : public kora::lumacast::BnLumacastCallback {
  public:
    struct Frame {
        int32_t blockCount;
        int32_t blockParam;
        size_t size;
        bool patternOk;  // camsim's default payload: byte i is i * 7 + 1
    };

    android::binder::Status onAiData(const std::string& data) override {
        std::lock_guard<std::mutex> lock(mMutex);
        mAi.push_back(data);
        mCond.notify_all();
        return android::binder::Status::ok();
    }
    android::binder::Status onProtoBuf(const std::vector<uint8_t>& data) override {
        std::lock_guard<std::mutex> lock(mMutex);
        mProto.push_back(data.size());
        mCond.notify_all();
        return android::binder::Status::ok();
    }
    android::binder::Status onFrame(int32_t blockCount, int32_t blockParam,
                                    const std::vector<uint8_t>& data) override {
        bool ok = true;
        for (size_t i = 0; i < data.size() && ok; ++i) {
            ok = data[i] == static_cast<uint8_t>(i * 7 + 1);
        }
        std::lock_guard<std::mutex> lock(mMutex);
        mFrames.push_back({blockCount, blockParam, data.size(), ok});
        mCond.notify_all();
        return android::binder::Status::ok();
    }

    bool waitForFrames(size_t n, std::chrono::milliseconds timeout) {
        return waitForAll(n, 0, 0, timeout);
    }
    bool waitForAll(size_t frames, size_t ai, size_t proto, std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCond.wait_for(lock, timeout, [&] {
            return mFrames.size() >= frames && mAi.size() >= ai && mProto.size() >= proto;
        });
    }
    std::vector<Frame> frames() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mFrames;
    }
    std::vector<std::string> ai() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mAi;
    }
    size_t frameCount() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mFrames.size();
    }
    void clear() {
        std::lock_guard<std::mutex> lock(mMutex);
        mFrames.clear();
        mAi.clear();
        mProto.clear();
    }

  private:
    std::mutex mMutex;
    std::condition_variable mCond;
    std::vector<Frame> mFrames;
    std::vector<std::string> mAi;
    std::vector<size_t> mProto;
};

// Waits until camsim's status line holds `text` ("connected=1", "connections=2 ").
inline bool waitForCamsim(FakeTv& tv, const std::string& text, int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (tv.camsim("status").find(text) == std::string::npos) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        usleep(20 * 1000);
    }
    return true;
}

// The command texts camsim has received so far, in order.
inline std::vector<std::string> camsimCommands(FakeTv& tv) {
    const std::string reply = tv.camsim("commands");
    std::vector<std::string> out;
    size_t at = reply.find('\n');
    while (at != std::string::npos) {
        const size_t next = reply.find('\n', at + 1);
        std::string line =
                reply.substr(at + 1, next == std::string::npos ? std::string::npos : next - at - 1);
        const size_t text = line.find_first_not_of(' ');
        out.push_back(text == std::string::npos ? "" : line.substr(text));
        at = next;
    }
    return out;
}

}  // namespace lumacast::e2e
