#include "tools/scenario/ScenarioListener.h"

#include <thread>

using android::binder::Status;

namespace lumacast::scenario {

Status ScenarioListener::arrived(Kind kind) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        ++mCounts[kind];
    }
    // Counted on arrival, so a scenario sees what reached a slow app while it still works.
    if (mDelay.count() > 0) std::this_thread::sleep_for(mDelay);
    return Status::ok();
}

Status ScenarioListener::onAiData(const std::string&) { return arrived(kAi); }

Status ScenarioListener::onProtoBuf(const std::vector<uint8_t>&) { return arrived(kProto); }

Status ScenarioListener::onFrame(int32_t, int32_t, const std::vector<uint8_t>&) {
    return arrived(kFrame);
}

uint64_t ScenarioListener::count(Kind kind) const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mCounts[kind];
}

}  // namespace lumacast::scenario
