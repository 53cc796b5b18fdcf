#pragma once

#include <binder/Status.h>
#include <kora/lumacast/BnLumacastCallback.h>
#include <stdint.h>

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

namespace lumacast::scenario {

// A listener a scenario registers by name: counts what arrives and, to play a slow app,
// holds each callback for a while before returning.
class ScenarioListener : public kora::lumacast::BnLumacastCallback {
  public:
    enum Kind { kFrame, kAi, kProto, kKindCount };

    explicit ScenarioListener(std::chrono::milliseconds delay) : mDelay(delay) {}

    android::binder::Status onAiData(const std::string& data) override;
    android::binder::Status onProtoBuf(const std::vector<uint8_t>& data) override;
    android::binder::Status onFrame(int32_t blockCount, int32_t blockParam,
                                    const std::vector<uint8_t>& data) override;

    uint64_t count(Kind kind) const;

  private:
    android::binder::Status arrived(Kind kind);

    const std::chrono::milliseconds mDelay;
    mutable std::mutex mMutex;
    uint64_t mCounts[kKindCount] = {};  // guarded by mMutex
};

}  // namespace lumacast::scenario
