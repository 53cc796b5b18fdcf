#pragma once

#include <binder/IInterface.h>
#include <binder/Status.h>
#include <cutils/properties.h>
#include <stdint.h>
#include <utils/StrongPointer.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "aidl/ILumacastCallback.h"
#include "service/LumacastService.h"
#include "tools/camsim/CameraSimulator.h"

namespace lumacast::bench {

// One in-process listener: counts frame blocks and their bytes; an AI JSON block marks
// the end of a run.
class CountingListener : public android::BnInterface<kora::lumacast::ILumacastCallback> {
  public:
    android::binder::Status onAiData(const std::string&) override {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mEnded = true;
        }
        mCond.notify_all();
        return android::binder::Status::ok();
    }
    android::binder::Status onProtoBuf(const std::vector<uint8_t>&) override {
        return android::binder::Status::ok();
    }
    android::binder::Status onFrame(int32_t, int32_t, const std::vector<uint8_t>& data) override {
        const auto now = std::chrono::steady_clock::now();
        std::lock_guard<std::mutex> lock(mMutex);
        if (mBlocks == 0) mFirst = now;
        mLast = now;
        ++mBlocks;
        mBytes += data.size();
        return android::binder::Status::ok();
    }

    // Blocks and bytes until the end marker, and the seconds from the first to the last
    // block. False on time-out.
    bool waitForEnd(std::chrono::seconds limit, uint64_t* blocks, uint64_t* bytes,
                    double* seconds) {
        std::unique_lock<std::mutex> lock(mMutex);
        const bool ended = mCond.wait_for(lock, limit, [&] { return mEnded; });
        *blocks = mBlocks;
        *bytes = mBytes;
        *seconds = std::chrono::duration<double>(mLast - mFirst).count();
        return ended;
    }

  private:
    std::mutex mMutex;
    std::condition_variable mCond;
    uint64_t mBlocks = 0;
    uint64_t mBytes = 0;
    bool mEnded = false;
    std::chrono::steady_clock::time_point mFirst;
    std::chrono::steady_clock::time_point mLast;
};

// The daemon's streaming service, with the camera reported present and its link connected
// to `camera`.
inline android::sp<android::lumacast::LumacastService> connectedService(
        camsim::CameraSimulator* camera) {
    const size_t before = camera->connectionCount();
    // A fresh service starts from an unplugged camera, as after a reboot.
    property_set("sys.kora.usb.status", "0");
    android::sp<android::lumacast::LumacastService> service =
            new android::lumacast::LumacastService();
    service->processCameraAdd();
    if (!service->continueProcess() ||
        !camera->waitForConnections(before + 1, std::chrono::seconds(10))) {
        return nullptr;
    }
    return service;
}

}  // namespace lumacast::bench
