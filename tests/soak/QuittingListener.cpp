// A listener program of the kind apps are: it registers, and removes its listener from
// inside its first onFrame. Exits 0 once it has done so, 2 when no frame came in time.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <kora/lumacast/BnLumacastCallback.h>
#include <kora/lumacast/ILumacast.h>
#include <stdio.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

using android::sp;
using android::binder::Status;
using kora::lumacast::ILumacast;

namespace {

class QuittingListener : public kora::lumacast::BnLumacastCallback {
  public:
    explicit QuittingListener(sp<ILumacast> service) : mService(std::move(service)) {}

    Status onAiData(const std::string&) override { return Status::ok(); }
    Status onProtoBuf(const std::vector<uint8_t>&) override { return Status::ok(); }
    Status onFrame(int32_t, int32_t, const std::vector<uint8_t>&) override {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            if (mFrames++ > 0) return Status::ok();
        }
        // The daemon's delivering thread runs this call while it waits for the answer.
        bool removed = false;
        const bool ok = mService->removeCallback(this, &removed).isOk() && removed;
        std::lock_guard<std::mutex> lock(mMutex);
        mRemoved = ok;
        mDone = true;
        mCond.notify_all();
        return Status::ok();
    }

    // Whether it removed itself within `limit`.
    bool waitRemoved(std::chrono::seconds limit) {
        std::unique_lock<std::mutex> lock(mMutex);
        mCond.wait_for(lock, limit, [this] { return mDone; });
        return mRemoved;
    }

  private:
    const sp<ILumacast> mService;
    std::mutex mMutex;
    std::condition_variable mCond;
    int mFrames = 0;
    bool mDone = false;
    bool mRemoved = false;
};

}  // namespace

int main() {
    android::ProcessState::self()->startThreadPool();
    const sp<ILumacast> service = android::interface_cast<ILumacast>(
            android::defaultServiceManager()->getService(android::String16("lumacastservice")));
    if (service == nullptr) {
        fprintf(stderr, "quitting listener: no lumacastservice\n");
        return 1;
    }
    const sp<QuittingListener> listener = new QuittingListener(service);
    bool ok = false;
    if (!service->setCallback(listener, &ok).isOk() || !ok) {
        fprintf(stderr, "quitting listener: setCallback failed\n");
        return 1;
    }
    if (listener->waitRemoved(std::chrono::seconds(10))) return 0;
    service->removeCallback(listener, &ok);
    return 2;
}
