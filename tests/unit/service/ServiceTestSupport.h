#pragma once

#include <binder/IInterface.h>
#include <binder/Status.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <lumacast/host/LogCapture.h>
#include <stdio.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "aidl/ILumacastCallback.h"
#include "service/LumacastService.h"
#include "tests/support/Namespace.h"
#include "tools/camsim/CameraSimulator.h"

namespace lumacast::test {

using namespace std::chrono_literals;
using android::sp;
using android::binder::Status;
using android::lumacast::LumacastService;
using camsim::commandFrame;

// An in-process listener recording what it receives; every call also goes to an optional
// shared journal, so tests can see the order across listeners.
class TestListener : public android::BnInterface<kora::lumacast::ILumacastCallback> {
  public:
    struct Event {
        char kind;  // 'j' AI JSON, 'p' protobuf, 'f' frame
        int blockCount = 0;
        int blockParam = 0;
        std::string data;
    };
    using Journal = std::function<void(const std::string& who, const Event&)>;

    explicit TestListener(std::string name = "", Journal journal = nullptr,
                          Status answer = Status::ok())
        : mName(std::move(name)), mJournal(std::move(journal)), mAnswer(answer) {}

    Status onAiData(const std::string& data) override { return record({'j', 0, 0, data}); }
    Status onProtoBuf(const std::vector<uint8_t>& data) override {
        return record({'p', 0, 0, std::string(data.begin(), data.end())});
    }
    Status onFrame(int32_t blockCount, int32_t blockParam,
                   const std::vector<uint8_t>& data) override {
        return record({'f', blockCount, blockParam, std::string(data.begin(), data.end())});
    }

    std::vector<Event> events() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mEvents;
    }
    size_t count() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mEvents.size();
    }
    bool waitForCount(size_t n, std::chrono::milliseconds timeout = 10s) const {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCond.wait_for(lock, timeout, [&] { return mEvents.size() >= n; });
    }

  private:
    Status record(Event e) {
        if (mJournal) mJournal(mName, e);
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mEvents.push_back(std::move(e));
        }
        mCond.notify_all();
        return mAnswer;
    }

    const std::string mName;
    const Journal mJournal;
    const Status mAnswer;
    mutable std::mutex mMutex;
    mutable std::condition_variable mCond;
    std::vector<Event> mEvents;
};

inline std::string property(const char* key) {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(key, value, "");
    return value;
}

// A service with camsim playing the camera on its real address; the camera is reported
// present unless a test says otherwise.
class ServiceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        // camsim serves the link's real address and port inside this namespace.
        ASSERT_TRUE(putCameraAddressOnLoopback()) << "not inside a test namespace?";
        camera = std::make_unique<camsim::CameraSimulator>("192.168.111.10", 10001);
        std::string why;
        ASSERT_TRUE(camera->start(&why)) << why;
        service = new LumacastService();
        adapter = std::make_unique<LumacastService::LumacastClient>(service.get());
    }

    void TearDown() override {
        adapter.reset();
        service.clear();
        camera.reset();
    }

    void plugCamera() { service->processCameraAdd(); }

    std::string dump() {
        FILE* f = tmpfile();
        EXPECT_EQ(android::OK, service->dump(fileno(f), {}));
        std::string text(8192, '\0');
        rewind(f);
        text.resize(fread(&text[0], 1, text.size(), f));
        fclose(f);
        return text;
    }

    host::LogCapture log;
    std::unique_ptr<camsim::CameraSimulator> camera;
    sp<LumacastService> service;
    std::unique_ptr<LumacastService::LumacastClient> adapter;
};

}  // namespace lumacast::test
