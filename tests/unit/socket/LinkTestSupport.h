#pragma once

#include <dirent.h>
#include <gtest/gtest.h>
#include <lumacast/host/LogCapture.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "socket/SocketClient.h"
#include "tests/support/Namespace.h"
#include "tools/camsim/CameraSimulator.h"
#include "util/ILumacastClient.h"

namespace lumacast::test {

using namespace std::chrono_literals;

// What the link handed to the service, in order.
struct Delivery {
    enum Kind { kResult, kAiJson, kProtobuf, kFrame };
    Kind kind;
    int blockCount = 0;
    int blockParam = 0;
    int len = 0;
    std::string bytes;       // the `len` bytes handed on
    bool zeroAfter = false;  // data[len] was a zero byte
};

class RecordingClient : public android::lumacast::ILumacastClient {
  public:
    void processCameraAdd() override {}
    void processCameraRemove() override {}
    int checkAlive() override { return 0; }
    int getCallbackSize() override { return 0; }

    int processResult(unsigned char* data, int len) override {
        if (data == nullptr) return -1;
        record(Delivery::kResult, 0, 0, data, len);
        return 0;
    }
    int processAiJson(unsigned char* data, int len) override {
        record(Delivery::kAiJson, 0, 0, data, len);
        return 0;
    }
    int processAiProtobuf(unsigned char* data, int len) override {
        record(Delivery::kProtobuf, 0, 0, data, len);
        return 0;
    }
    int processFrame(int blockCount, int blockParam, unsigned char* data, int len) override {
        std::function<void()> hook;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            hook = mFrameHook;
        }
        if (hook) hook();
        record(Delivery::kFrame, blockCount, blockParam, data, len);
        return 0;
    }

    // Runs on the read thread before each frame is recorded (to hold the reader).
    void setFrameHook(std::function<void()> hook) {
        std::lock_guard<std::mutex> lock(mMutex);
        mFrameHook = std::move(hook);
    }

    std::vector<Delivery> deliveries() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mDeliveries;
    }
    size_t count() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mDeliveries.size();
    }
    bool waitForCount(size_t n, std::chrono::milliseconds timeout = 10s) const {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCond.wait_for(lock, timeout, [&] { return mDeliveries.size() >= n; });
    }
    void clear() {
        std::lock_guard<std::mutex> lock(mMutex);
        mDeliveries.clear();
    }

  private:
    void record(Delivery::Kind kind, int blockCount, int blockParam, const unsigned char* data,
                int len) {
        Delivery d;
        d.kind = kind;
        d.blockCount = blockCount;
        d.blockParam = blockParam;
        d.len = len;
        d.bytes.assign(reinterpret_cast<const char*>(data), static_cast<size_t>(len));
        d.zeroAfter = data[len] == 0;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mDeliveries.push_back(std::move(d));
        }
        mCond.notify_all();
    }

    mutable std::mutex mMutex;
    mutable std::condition_variable mCond;
    std::vector<Delivery> mDeliveries;
    std::function<void()> mFrameHook;
};

inline std::string bytesOf(std::initializer_list<int> values) {
    std::string out;
    for (int v : values) out.push_back(static_cast<char>(v));
    return out;
}

inline size_t openDescriptorCount() {
    size_t n = 0;
    DIR* d = opendir("/proc/self/fd");
    if (d == nullptr) return 0;
    while (readdir(d) != nullptr) ++n;
    closedir(d);
    return n;
}

class LinkTest : public ::testing::Test {
  protected:
    void SetUp() override {
        // camsim serves the link's real address and port inside this namespace.
        ASSERT_TRUE(putCameraAddressOnLoopback()) << "not inside a test namespace?";
        camera = std::make_unique<camsim::CameraSimulator>("192.168.111.10", 10001);
        std::string why;
        ASSERT_TRUE(camera->start(&why)) << why;
    }

    void TearDown() override {
        link.reset();
        camera.reset();
    }

    // A link to camsim with the camera present and its read loop running.
    void connect() {
        link = std::make_unique<android::lumacast::SocketClient>(&client);
        link->cameraExit = true;
        ASSERT_TRUE(link->init());
        ASSERT_TRUE(camera->waitForConnections(1, 10s));
    }

    // Sends a result until the link hands it on: what goes to a connection the link has
    // given up is lost.
    bool resultGetsThrough(const std::string& text) {
        for (int i = 0; i < 1000; ++i) {
            camera->send(camsim::resultMessage(text));
            std::this_thread::sleep_for(10ms);
            const auto all = client.deliveries();
            if (!all.empty() && all.back().bytes == text) return true;
        }
        return false;
    }

    host::LogCapture log;
    RecordingClient client;
    std::unique_ptr<camsim::CameraSimulator> camera;
    std::unique_ptr<android::lumacast::SocketClient> link;
};

}  // namespace lumacast::test
