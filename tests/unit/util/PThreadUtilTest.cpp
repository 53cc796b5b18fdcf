#include <gtest/gtest.h>
#include <lumacast/host/LogCapture.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "util/PThreadUtil.h"

using android::lumacast::PThreadUtil;
using android::lumacast::threadExitValue;
using android::lumacast::ThreadObject;
using android::lumacast::threadWork;
using lumacast::host::LogCapture;
using namespace std::chrono_literals;

namespace {

constexpr const char* kUevent = "ThreadUEvent";

// Records every call it receives, with the name of the thread it ran on; a call for the
// item in mHold stays inside until mHold changes.
class RecordingObject : public ThreadObject {
  public:
    struct Call {
        void* data1;
        std::string data2;
        std::string thread;
    };
    int selfProcess(void* data1, void* data2) override {
        char thread[16] = {};
        prctl(PR_GET_NAME, thread, 0, 0, 0);
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mCalls.push_back({data1, data2 ? static_cast<const char*>(data2) : "", thread});
        }
        mCallCount++;
        if (data1 != nullptr && data1 == mHold) {
            mInside = true;
            while (data1 == mHold) std::this_thread::sleep_for(1ms);
            mInside = false;
        }
        return mResult;
    }
    std::vector<Call> calls() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mCalls;
    }
    std::atomic<int> mCallCount{0};
    std::atomic<const void*> mHold{nullptr};
    std::atomic<bool> mInside{false};
    int mResult = 0;

  private:
    std::mutex mMutex;
    std::vector<Call> mCalls;
};

bool waitUntil(const std::function<bool()>& pred, std::chrono::milliseconds limit = 5000ms) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!pred()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

}  // namespace

TEST(PThreadUtilTest, RefusedConstructionCreatesNoThread) {
    LogCapture log;
    RecordingObject object;
    int item = 1;
    {
        PThreadUtil noName("", &object);
        EXPECT_FALSE(noName.isInited());
        noName.process(&item);
        PThreadUtil noObject("socketRead", nullptr);
        noObject.process(&item);
    }
    EXPECT_EQ(1u, log.count("PThreadUtil nullptr == threadName err", ANDROID_LOG_ERROR));
    EXPECT_EQ(1u, log.count("PThreadUtil nullptr == threadObject err", ANDROID_LOG_ERROR));
    EXPECT_EQ(2u, log.count("PThreadUtil::process  mIsInited:0") +
                          log.count("PThreadUtil::process socketRead mIsInited:0"));
    EXPECT_EQ(2u, log.count("~PThreadUtil mIsInited:0", ANDROID_LOG_DEBUG));
    EXPECT_EQ(0, object.mCallCount.load());
}

// Other workers run nothing until handed an item (a null item is refused); a failing item
// is logged and the worker goes on; destroying an idle worker ends it with exit value 0.
TEST(PThreadUtilTest, OtherWorkersRunOnlyHandedItemsWithTheirName) {
    LogCapture log;
    RecordingObject object;
    object.mResult = -3;
    int a = 1, b = 2;
    {
        PThreadUtil worker("socketRead", &object);
        worker.process(nullptr);
        EXPECT_TRUE(log.contains("PThreadUtil::process socketRead nullptr == data"));
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(0, object.mCallCount.load());
        worker.process(&a);
        worker.process(&b);
        ASSERT_TRUE(waitUntil([&] { return object.mCallCount.load() == 2; }));
    }
    const auto calls = object.calls();
    ASSERT_EQ(2u, calls.size());
    for (size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(i == 0 ? &a : &b, calls[i].data1);
        EXPECT_EQ("socketRead", calls[i].data2);
        EXPECT_EQ("socketRead", calls[i].thread);
    }
    EXPECT_EQ(2u, log.count("PThreadUtil::onProcess socketRead retInt:-3", ANDROID_LOG_ERROR));
    const long stop = log.indexOf("PThreadUtil::onProcess socketRead mData is null");
    const long joined = log.indexOf("~PThreadUtil socketRead exitRet:0");
    ASSERT_GE(stop, 0);
    ASSERT_GT(joined, stop);
    EXPECT_EQ(ANDROID_LOG_INFO, log.entries()[static_cast<size_t>(joined)].prio);
}

// A hand-over waits for the item before it to return; so does the destructor.
TEST(PThreadUtilTest, HandOverAndDestructionWaitForTheRunningItem) {
    LogCapture log;
    RecordingObject object;
    int a = 1, b = 2;
    object.mHold = &a;
    auto worker = std::make_unique<PThreadUtil>("socketWrite", &object);
    worker->process(&a);
    ASSERT_TRUE(waitUntil([&] { return object.mInside.load(); }));
    auto second = std::async(std::launch::async, [&] { worker->process(&b); });
    EXPECT_EQ(std::future_status::timeout, second.wait_for(50ms));
    EXPECT_EQ(1, object.mCallCount.load());
    object.mHold = &b;
    second.get();
    ASSERT_TRUE(waitUntil([&] { return object.mCallCount.load() == 2 && object.mInside; }));
    auto destroyed = std::async(std::launch::async, [&] { worker.reset(); });
    EXPECT_EQ(std::future_status::timeout, destroyed.wait_for(50ms));
    object.mHold = nullptr;
    destroyed.get();
    EXPECT_TRUE(log.contains("~PThreadUtil socketWrite exitRet:0"));
    const auto calls = object.calls();
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(&a, calls[0].data1);
    EXPECT_EQ(&b, calls[1].data1);
}

// Many producers hand over distinct items back to back: every item must run exactly
// once. A lost hand-over (made just before the worker sleeps) hangs or drops an item; an
// overwritten slot or a spurious rerun shows up as a doubled one.
TEST(PThreadUtilTest, EveryItemRunsExactlyOnceUnderContention) {
    constexpr int kProducers = 4;
    constexpr int kItemsEach = 500;
    std::vector<int> items(kProducers * kItemsEach);
    RecordingObject object;
    {
        PThreadUtil worker("socketWrite", &object);
        std::vector<std::thread> producers;
        for (int p = 0; p < kProducers; ++p) {
            producers.emplace_back([&, p] {
                for (int i = 0; i < kItemsEach; ++i) worker.process(&items[p * kItemsEach + i]);
            });
        }
        for (auto& t : producers) t.join();
    }
    std::map<void*, int> seen;
    for (const auto& call : object.calls()) seen[call.data1]++;
    ASSERT_EQ(items.size(), seen.size());
    for (auto& item : items) EXPECT_EQ(1, seen[&item]);
}

// The uevent worker runs once at start, with its name as both arguments, on a thread of
// that name, even when destroyed at once; other workers destroyed at once run nothing. The
// destructor's stop request mostly arrives during the start-up run: losing it hangs here.
TEST(PThreadUtilTest, UeventWorkerRunsOnceAtStartEvenWhenDestroyedAtOnce) {
    RecordingObject object;
    for (int i = 0; i < 200; ++i) {
        PThreadUtil worker(i % 2 ? "socketRead" : kUevent, &object);
    }
    const auto calls = object.calls();
    ASSERT_EQ(100u, calls.size());
    for (const auto& call : calls) {
        EXPECT_STREQ(kUevent, static_cast<const char*>(call.data1));
        EXPECT_EQ(kUevent, call.data2);
        EXPECT_EQ(kUevent, call.thread);
    }
}

// The thread's exit value is what its object returned, read back by the joiner; a
// negative one is logged on the way.
TEST(PThreadUtilTest, ThreadExitValueIsTheObjectsResult) {
    LogCapture log;
    auto exitValue = [](ThreadObject* object) {
        pthread_t thread;
        void* result = nullptr;
        EXPECT_EQ(0, pthread_create(&thread, nullptr, threadWork, object));
        pthread_join(thread, &result);
        return threadExitValue(result);
    };
    RecordingObject object;
    object.mResult = 5;
    EXPECT_EQ(5, exitValue(&object));
    PThreadUtil::Client orphan(nullptr);
    EXPECT_EQ(-1, exitValue(&orphan));
    EXPECT_EQ(-1, exitValue(nullptr));
    EXPECT_EQ(1u, log.count("threadWork 0 > retInt:-1 err", ANDROID_LOG_DEBUG));
    EXPECT_EQ(1u, log.count("threadWork nullptr == arg err", ANDROID_LOG_DEBUG));
    EXPECT_EQ(0u, log.countContaining("retInt:5"));
}
