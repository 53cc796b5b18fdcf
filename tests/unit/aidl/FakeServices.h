#pragma once

// Test doubles behind the hand-written stubs: every operation records its call and
// answers with a value derived from its arguments, so a test on either side of a binder
// can tell that each argument and each result made it through.
#include <algorithm>
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

// Call log and a status to return once instead of ok.
class Recorder {
  public:
    std::vector<std::string> calls() {
        std::lock_guard<std::mutex> lock(mLock);
        return mCalls;
    }
    void failNext(const Status& status) {
        std::lock_guard<std::mutex> lock(mLock);
        mForced = status;
    }

  protected:
    // Runs body under the lock after logging the call.
    template <typename F>
    Status op(const std::string& call, F body) {
        std::lock_guard<std::mutex> lock(mLock);
        mCalls.push_back(call);
        body();
        Status s = mForced.value_or(Status::ok());
        mForced.reset();
        return s;
    }
    std::mutex mLock;

  private:
    std::vector<std::string> mCalls;
    std::optional<Status> mForced;
};

inline std::string str(int32_t v) { return std::to_string(v); }

class FakeLumacast : public kora::lumacast::BnLumacast, public Recorder {
  public:
    Status setCallback(const sp<ILumacastCallback>& cb, bool* r) override {
        return op("setCallback", [&] {
            mListeners.push_back(cb);
            *r = true;
        });
    }
    Status removeCallback(const sp<ILumacastCallback>& cb, bool* r) override {
        return op("removeCallback", [&] {
            auto it = std::find_if(mListeners.begin(), mListeners.end(),
                                   [&](const auto& l) { return asBinder(l) == asBinder(cb); });
            *r = it != mListeners.end();
            if (*r) mListeners.erase(it);
        });
    }
    Status setZoomSwitch(bool on, bool* r) override {
        return op("setZoomSwitch(" + str(on) + ")", [&] { mZoom = *r = on; });
    }
    Status getZoomSwitch(bool* on) override {
        return op("getZoomSwitch", [&] { *on = mZoom; });
    }
    Status getAiAlgoList(int32_t* l) override {
        return op("getAiAlgoList", [&] { *l = 0x12345678; });
    }
    Status setAiSubscribeType(int32_t type, bool* r) override {
        if (type < 0) return Status::fromServiceSpecificError(type, "negative type");
        return op("setAiSubscribeType(" + str(type) + ")", [&] {
            mType = type;
            *r = type % 2 == 1;
        });
    }
    Status getAiSubscribeStatus(int32_t* s) override {
        return op("getAiSubscribeStatus", [&] { *s = mType; });
    }
    Status setAiProperty(const std::string& p, bool* r) override {
        return op("setAiProperty(" + p + ")",
                  [&] { *r = p == "\xc3\xbc\xe2\x82\xac\xf0\x9d\x84\x9e"; });
    }
    Status getAiProperty(const std::string& p, std::string* v) override {
        return op("getAiProperty(" + p + ")", [&] { *v = "value of " + p; });
    }
    Status setAiSubscribe(int32_t p, const std::string& o, bool* r) override {
        return op("setAiSubscribe(" + str(p) + "," + o + ")", [&] {
            mSubscribe = str(p) + "/" + o;
            *r = true;
        });
    }
    Status getAiSubscribe(std::string* v) override {
        return op("getAiSubscribe", [&] { *v = mSubscribe; });
    }
    // Calls every listener from a thread of its own, as the camera's read thread does.
    Status grabFrame(int32_t format, const std::string& res, bool* r) override {
        bool ok = true;
        std::thread([&] {
            ok = fire(listeners("grabFrame(" + str(format) + "," + res + ")"), format, res);
        }).join();
        *r = ok && format == 3 && res == "1920x1080";
        return Status::ok();
    }
    // Calls every listener on the binder thread, nested in this call.
    Status sendDoa(const std::string& data, bool* r) override {
        *r = fire(listeners("sendDoa(" + data + ")"), static_cast<int32_t>(data.size()), data);
        return Status::ok();
    }
    Status setAutoFraming(int32_t p, bool* r) override {
        return op("setAutoFraming(" + str(p) + ")", [&] {
            mAuto = p;
            *r = p > 0;
        });
    }
    Status getAutoFraming(bool* on) override {
        return op("getAutoFraming", [&] { *on = mAuto > 0; });
    }
    Status setZoomMode(int32_t p, int32_t m, bool* r) override {
        return op("setZoomMode(" + str(p) + "," + str(m) + ")", [&] {
            mZoomMode = str(p) + "," + str(m);
            *r = true;
        });
    }
    Status getZoomMode(std::string* v) override {
        return op("getZoomMode", [&] { *v = mZoomMode; });
    }

  private:
    std::vector<sp<ILumacastCallback>> listeners(const std::string& call) {
        std::vector<sp<ILumacastCallback>> copy;
        op(call, [&] { copy = mListeners; });
        return copy;
    }
    // onAiData(text), onProtoBuf(bytes 0..n-1), onFrame(n, 7, text bytes) on each listener.
    bool fire(const std::vector<sp<ILumacastCallback>>& listeners, int32_t n,
              const std::string& text) {
        std::vector<uint8_t> bytes;
        for (int32_t i = 0; i < n; ++i) bytes.push_back(static_cast<uint8_t>(i));
        bool ok = true;
        for (const sp<ILumacastCallback>& l : listeners) {
            for (const Status& s : {l->onAiData(text), l->onProtoBuf(bytes),
                                    l->onFrame(n, 7, {text.begin(), text.end()})}) {
                ok &= s.isOk();
            }
        }
        return ok;
    }

    std::vector<sp<ILumacastCallback>> mListeners;
    bool mZoom = false;
    int32_t mType = 0;
    int32_t mAuto = 0;
    std::string mSubscribe;
    std::string mZoomMode;
};

class FakeKCameraMotor : public kora::lumacast::BnKCameraMotor, public Recorder {
  public:
    Status set_client_type(const std::string& t) override {
        return op("set_client_type(" + t + ")", [&] { mType = t; });
    }
    Status motor_down(int32_t* r) override {
        return op("motor_down", [&] { *r = -7; });
    }
    Status motor_up(int32_t* r) override {
        return op("motor_up", [&] { *r = 256; });
    }
    Status get_motor_status(int32_t* s) override {
        return op("get_motor_status", [&] { *s = 4096; });
    }
    Status get_rise_time(int32_t* t) override {
        return op("get_rise_time", [&] { *t = 1500; });
    }
    Status get_switch_status(bool* on) override {
        return op("get_switch_status", [&] { *on = mType == "birch"; });
    }
    Status is_support_motor(bool* s) override {
        return op("is_support_motor", [&] { *s = !mType.empty(); });
    }
    Status set_status(bool s) override {
        return op("set_status(" + str(s) + ")", [&] { mStatus = s; });
    }
    Status get_status(bool* s) override {
        return op("get_status", [&] { *s = mStatus; });
    }
    Status get_mcu_version(std::string* v) override {
        return op("get_mcu_version", [&] { *v = mType.empty() ? "" : "v1.2-" + mType; });
    }
    Status mcu_upgrade(const std::string& path, int32_t* r) override {
        return op("mcu_upgrade(" + path + ")", [&] { *r = static_cast<int32_t>(path.size()); });
    }

  private:
    std::string mType;
    bool mStatus = false;
};

}  // namespace lumacast::test
