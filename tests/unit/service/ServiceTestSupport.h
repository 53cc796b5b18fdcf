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

// The result text camsim answers command `id` with.
inline std::string answer(int id, int param, int rval) {
    return "{\"cmd_id\":" + std::to_string(id) + ",\"param\":" + std::to_string(param) +
           ",\"rval\":" + std::to_string(rval) + "}";
}

// What a camera operation writes back.
struct Outs {
    bool b = false;
    int32_t i = 0;
    std::string s;
};

// Every camera operation, the text the camera must receive for it, and whether what it
// wrote back is a success after camsim's plain answer.
struct Operation {
    std::string text;
    std::function<void(LumacastService*, Outs*)> call;
    std::function<bool(const Outs&)> succeeded;
};

inline std::vector<Operation> cameraOperations() {
    const auto isTrue = [](const Outs& o) { return o.b; };
    const auto isOne = [](const Outs& o) { return o.i == 1; };
    const auto isAnswer = [](int id) {
        return [id](const Outs& o) { return o.s == answer(id, 1, 0); };
    };
    return {
            {"{\"cmd_id\":14,\"param\":1}",
             [](LumacastService* sv, Outs* o) { sv->setZoomSwitch(true, &o->b); }, isTrue},
            {"{\"cmd_id\":15,\"param\":0}",
             [](LumacastService* sv, Outs* o) { sv->getZoomSwitch(&o->b); }, isTrue},
            {"{\"cmd_id\":16,\"param\":0}",
             [](LumacastService* sv, Outs* o) { sv->getAiAlgoList(&o->i); }, isOne},
            {"{\"cmd_id\":1,\"param\":-1}",
             [](LumacastService* sv, Outs* o) { sv->setAiSubscribeType(-1, &o->b); }, isTrue},
            {"{\"cmd_id\":2,\"param\":0}",
             [](LumacastService* sv, Outs* o) { sv->getAiSubscribeStatus(&o->i); }, isOne},
            {"{\"cmd_id\":5,\"param\":\"face\"}",
             [](LumacastService* sv, Outs* o) { sv->setAiProperty("face", &o->b); }, isTrue},
            {"{\"cmd_id\":6,\"param\":\"x\"}",
             [](LumacastService* sv, Outs* o) { sv->getAiProperty("x", &o->s); }, isAnswer(6)},
            {"{\"cmd_id\":1,\"param\":3,\"option\":[1,2]}",
             [](LumacastService* sv, Outs* o) { sv->setAiSubscribe(3, "[1,2]", &o->b); }, isTrue},
            {"{\"cmd_id\":2,\"param\":0}",
             [](LumacastService* sv, Outs* o) { sv->getAiSubscribe(&o->s); }, isAnswer(2)},
            {"{\"cmd_id\":3,\"param_1\":2,\"param_2\":\"1920x1080\"}",
             [](LumacastService* sv, Outs* o) { sv->grabFrame(2, "1920x1080", &o->b); }, isTrue},
            {"{\"cmd_id\":4,\"param\":{\"angle\":30}}",
             [](LumacastService* sv, Outs* o) { sv->sendDoa("{\"angle\":30}", &o->b); }, isTrue},
            {"{\"cmd_id\":12,\"param\":1}",
             [](LumacastService* sv, Outs* o) { sv->setAutoFraming(1, &o->b); }, isTrue},
            {"{\"cmd_id\":13,\"param\":0}",
             [](LumacastService* sv, Outs* o) { sv->getAutoFraming(&o->b); }, isTrue},
            {"{\"cmd_id\":14,\"param\":2,\"mode\":-3}",
             [](LumacastService* sv, Outs* o) { sv->setZoomMode(2, -3, &o->b); }, isTrue},
            {"{\"cmd_id\":15,\"param\":0}",
             [](LumacastService* sv, Outs* o) { sv->getZoomMode(&o->s); }, isAnswer(15)},
    };
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
