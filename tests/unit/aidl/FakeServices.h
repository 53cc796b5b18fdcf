#pragma once

// Test doubles behind the hand-written stubs: every operation records its call and
// answers with a value derived from its arguments, so a test on either side of a binder
// can tell that each argument and each result made it through.
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "aidl/BnKCameraMotor.h"
#include "aidl/BnLumacast.h"

namespace lumacast::test {

using ::android::sp;
using ::android::binder::Status;
using kora::lumacast::ILumacastCallback;

class FakeLumacast : public kora::lumacast::BnLumacast {
  public:
    std::vector<std::string> calls() {
        std::lock_guard<std::mutex> lock(mLock);
        return mCalls;
    }
    size_t listenerCount() {
        std::lock_guard<std::mutex> lock(mLock);
        return mListeners.size();
    }
    // The next operation returns this instead of ok.
    void failNext(const Status& status) {
        std::lock_guard<std::mutex> lock(mLock);
        mForced = status;
    }

    Status setCallback(const sp<ILumacastCallback>& callback, bool* result) override {
        std::lock_guard<std::mutex> lock(mLock);
        record("setCallback");
        mListeners.push_back(callback);
        *result = true;
        return take();
    }
    Status removeCallback(const sp<ILumacastCallback>& callback, bool* result) override {
        std::lock_guard<std::mutex> lock(mLock);
        record("removeCallback");
        *result = false;
        for (auto it = mListeners.begin(); it != mListeners.end(); ++it) {
            if (::android::IInterface::asBinder(*it) == ::android::IInterface::asBinder(callback)) {
                mListeners.erase(it);
                *result = true;
                break;
            }
        }
        return take();
    }
    Status setZoomSwitch(bool on, bool* result) override {
        std::lock_guard<std::mutex> lock(mLock);
        record("setZoomSwitch(" + std::to_string(on) + ")");
        mZoom = on;
        *result = on;
        return take();
    }
    Status getZoomSwitch(bool* on) override {
        std::lock_guard<std::mutex> lock(mLock);
        record("getZoomSwitch");
        *on = mZoom;
        return take();
    }
    Status getAiAlgoList(int32_t* list) override {
        std::lock_guard<std::mutex> lock(mLock);
        record("getAiAlgoList");
        *list = 0x12345678;
        return take();
    }
    Status setAiSubscribeType(int32_t type, bool* result) override {
        std::lock_guard<std::mutex> lock(mLock);
        record("setAiSubscribeType(" + std::to_string(type) + ")");
        if (type < 0) return Status::fromServiceSpecificError(type, "negative type");
        mType = type;
        *result = type % 2 == 1;
        return take();
    }
    Status getAiSubscribeStatus(int32_t* status) override {
        std::lock_guard<std::mutex> lock(mLock);
        record("getAiSubscribeStatus");
        *status = mType;
        return take();
    }
    Status setAiProperty(const std::string& param, bool* result) override {
        std::lock_guard<std::mutex> lock(mLock);
        record("setAiProperty(" + param + ")");
        *result = param == "\xc3\xbc\xe2\x82\xac\xf0\x9d\x84\x9e";
        return take();
    }
    Status getAiProperty(const std::string& param, std::string* value) override {
        std::lock_guard<std::mutex> lock(mLock);
        record("getAiProperty(" + param + ")");
        *value = param == "callbacks" ? mCallbackResults : "value of " + param;
        return take();
    }
    Status setAiSubscribe(int32_t param, const std::string& option, bool* result) override {
        std::lock_guard<std::mutex> lock(mLock);
        record("setAiSubscribe(" + std::to_string(param) + "," + option + ")");
        mSubscribe = std::to_string(param) + "/" + option;
        *result = true;
        return take();
    }
    Status getAiSubscribe(std::string* value) override {
        std::lock_guard<std::mutex> lock(mLock);
        record("getAiSubscribe");
        *value = mSubscribe;
        return take();
    }
    // Calls every listener from a thread of its own, as the camera's read thread does.
    Status grabFrame(int32_t format, const std::string& resolution, bool* result) override {
        std::vector<sp<ILumacastCallback>> listeners;
        {
            std::lock_guard<std::mutex> lock(mLock);
            record("grabFrame(" + std::to_string(format) + "," + resolution + ")");
            listeners = mListeners;
        }
        bool ok = true;
        std::thread([&] { ok = fire(listeners, format, resolution); }).join();
        *result = ok && format == 3 && resolution == "1920x1080";
        return Status::ok();
    }
    // Calls every listener on the binder thread, nested in this call.
    Status sendDoa(const std::string& data, bool* result) override {
        std::vector<sp<ILumacastCallback>> listeners;
        {
            std::lock_guard<std::mutex> lock(mLock);
            record("sendDoa(" + data + ")");
            listeners = mListeners;
        }
        *result = fire(listeners, static_cast<int32_t>(data.size()), data);
        return Status::ok();
    }
    Status setAutoFraming(int32_t param, bool* result) override {
        std::lock_guard<std::mutex> lock(mLock);
        record("setAutoFraming(" + std::to_string(param) + ")");
        mAuto = param;
        *result = param > 0;
        return take();
    }
    Status getAutoFraming(bool* on) override {
        std::lock_guard<std::mutex> lock(mLock);
        record("getAutoFraming");
        *on = mAuto > 0;
        return take();
    }
    Status setZoomMode(int32_t param, int32_t mode, bool* result) override {
        std::lock_guard<std::mutex> lock(mLock);
        record("setZoomMode(" + std::to_string(param) + "," + std::to_string(mode) + ")");
        mZoomMode = std::to_string(param) + "," + std::to_string(mode);
        *result = true;
        return take();
    }
    Status getZoomMode(std::string* value) override {
        std::lock_guard<std::mutex> lock(mLock);
        record("getZoomMode");
        *value = mZoomMode;
        return take();
    }

  private:
    void record(const std::string& call) { mCalls.push_back(call); }
    Status take() {
        Status s = mForced.value_or(Status::ok());
        mForced.reset();
        return s;
    }
    // onAiData(text), onProtoBuf(bytes 0..n-1), onFrame(n, 7, text bytes) on each listener;
    // remembers each call's transport result.
    bool fire(const std::vector<sp<ILumacastCallback>>& listeners, int32_t n,
              const std::string& text) {
        std::vector<uint8_t> bytes;
        for (int32_t i = 0; i < n; ++i) bytes.push_back(static_cast<uint8_t>(i));
        const std::vector<uint8_t> textBytes(text.begin(), text.end());
        std::string results;
        bool ok = true;
        for (const sp<ILumacastCallback>& l : listeners) {
            for (const Status& s :
                 {l->onAiData(text), l->onProtoBuf(bytes), l->onFrame(n, 7, textBytes)}) {
                results += (results.empty() ? "" : ",") + std::to_string(s.transactionError());
                ok &= s.isOk();
            }
        }
        std::lock_guard<std::mutex> lock(mLock);
        mCallbackResults = results;
        return ok;
    }

    std::mutex mLock;
    std::vector<std::string> mCalls;
    std::vector<sp<ILumacastCallback>> mListeners;
    std::optional<Status> mForced;
    bool mZoom = false;
    int32_t mType = 0;
    int32_t mAuto = 0;
    std::string mSubscribe;
    std::string mZoomMode;
    std::string mCallbackResults;
};

class FakeKCameraMotor : public kora::lumacast::BnKCameraMotor {
  public:
    std::vector<std::string> calls() {
        std::lock_guard<std::mutex> lock(mLock);
        return mCalls;
    }
    void failNext(const Status& status) {
        std::lock_guard<std::mutex> lock(mLock);
        mForced = status;
    }

    Status set_client_type(const std::string& type) override {
        std::lock_guard<std::mutex> lock(mLock);
        mCalls.push_back("set_client_type(" + type + ")");
        mType = type;
        return take();
    }
    Status motor_down(int32_t* result) override { return value("motor_down", -7, result); }
    Status motor_up(int32_t* result) override { return value("motor_up", 256, result); }
    Status get_motor_status(int32_t* status) override {
        return value("get_motor_status", 4096, status);
    }
    Status get_rise_time(int32_t* time) override { return value("get_rise_time", 1500, time); }
    Status get_switch_status(bool* on) override {
        std::lock_guard<std::mutex> lock(mLock);
        mCalls.push_back("get_switch_status");
        *on = mType == "birch";
        return take();
    }
    Status is_support_motor(bool* supported) override {
        std::lock_guard<std::mutex> lock(mLock);
        mCalls.push_back("is_support_motor");
        *supported = !mType.empty();
        return take();
    }
    Status set_status(bool status) override {
        std::lock_guard<std::mutex> lock(mLock);
        mCalls.push_back("set_status(" + std::to_string(status) + ")");
        mStatus = status;
        return take();
    }
    Status get_status(bool* status) override {
        std::lock_guard<std::mutex> lock(mLock);
        mCalls.push_back("get_status");
        *status = mStatus;
        return take();
    }
    Status get_mcu_version(std::string* version) override {
        std::lock_guard<std::mutex> lock(mLock);
        mCalls.push_back("get_mcu_version");
        *version = mType.empty() ? "" : "v1.2-" + mType;
        return take();
    }
    Status mcu_upgrade(const std::string& path, int32_t* result) override {
        std::lock_guard<std::mutex> lock(mLock);
        mCalls.push_back("mcu_upgrade(" + path + ")");
        *result = static_cast<int32_t>(path.size());
        return take();
    }

  private:
    Status value(const char* name, int32_t v, int32_t* out) {
        std::lock_guard<std::mutex> lock(mLock);
        mCalls.push_back(name);
        *out = v;
        return take();
    }
    Status take() {
        Status s = mForced.value_or(Status::ok());
        mForced.reset();
        return s;
    }

    std::mutex mLock;
    std::vector<std::string> mCalls;
    std::optional<Status> mForced;
    std::string mType;
    bool mStatus = false;
};

}  // namespace lumacast::test
