#pragma once

#include <stdint.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <tuple>
#include <vector>

#include "service/ILumacastClient.h"
#include "socket/SocketClient.h"
#include "tools/camsim/CameraSimulator.h"

namespace lumacast::bench {

// The daemon's receive path: the link's read loop handing frame blocks to a processFrame
// that copies each block once and gives it to one in-process listener.
class LinkUnderTest : public android::lumacast::ILumacastClient {
public:
    LinkUnderTest() : mLink(std::make_unique<android::lumacast::SocketClient>(this)) {}
    ~LinkUnderTest() override { mLink.reset(); }

    bool connect(camsim::CameraSimulator* camera) {
        const size_t before = camera->connectionCount();
        mLink->cameraExit = true;
        return mLink->init() && camera->waitForConnections(before + 1, std::chrono::seconds(10));
    }

    // Blocks and payload bytes received until the end marker (any result) arrived, and
    // the seconds from the first to the last block. False on time-out.
    bool receive(std::chrono::seconds limit, uint64_t* blocks, uint64_t* bytes, double* seconds) {
        std::unique_lock<std::mutex> lock(mMutex);
        const bool ended = mCond.wait_for(lock, limit, [&] { return mEnded; });
        *blocks = mBlocks;
        *bytes = mBytes;
        *seconds = std::chrono::duration<double>(mLast - mFirst).count();
        return ended;
    }

    void processCameraAdd() override {}
    void processCameraRemove() override {}
    int checkAlive() override { return 0; }
    int getCallbackSize() override { return 1; }
    int processResult(unsigned char*, int) override {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mEnded = true;
        }
        mCond.notify_all();
        return 0;
    }
    int processAiJson(unsigned char*, int) override { return 0; }
    int processAiProtobuf(unsigned char*, int) override { return 0; }
    int processFrame(int blockCount, int blockParam, unsigned char* data, int len) override {
        std::lock_guard<std::mutex> lock(mFanOutMutex);
        std::vector<uint8_t> block(data, data + len);
        onFrame(blockCount, blockParam, block);
        return 0;
    }

private:
    void onFrame(int, int, const std::vector<uint8_t>& data) {
        const auto now = std::chrono::steady_clock::now();
        {
            std::lock_guard<std::mutex> lock(mMutex);
            if (mBlocks == 0) mFirst = now;
            mLast = now;
            ++mBlocks;
            mBytes += data.size();
        }
        mCond.notify_all();
    }

    std::mutex mFanOutMutex;
    std::mutex mMutex;
    std::condition_variable mCond;
    uint64_t mBlocks = 0;
    uint64_t mBytes = 0;
    bool mEnded = false;
    std::chrono::steady_clock::time_point mFirst;
    std::chrono::steady_clock::time_point mLast;
    std::unique_ptr<android::lumacast::SocketClient> mLink;
};

}  // namespace lumacast::bench
