#include "util/PThreadUtil.h"

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

#include <gtest/gtest.h>

#include <lumacast/host/LogCapture.h>

using android::lumacast::PThreadUtil;
using android::lumacast::threadExitValue;
using android::lumacast::ThreadObject;
using android::lumacast::threadWork;
using lumacast::host::LogCapture;
using namespace std::chrono_literals;

namespace {

// Records every call it receives; can block inside an item until released.
class RecordingObject : public ThreadObject {
public:
    int selfProcess(void* data1, void* data2) override {
        char thread[16] = {};
        prctl(PR_GET_NAME, thread, 0, 0, 0);
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mCalls.push_back({data1, data2 ? static_cast<const char*>(data2) : ""});
            mThreadNames.push_back(thread);
        }
        mCallCount++;
        if (mBlock) {
            mInside = true;
            while (mBlock) std::this_thread::sleep_for(1ms);
            mInside = false;
        }
        return mResult;
    }
    std::vector<std::pair<void*, std::string>> calls() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mCalls;
    }
    // The name of the thread each call ran on.
    std::vector<std::string> threadNames() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mThreadNames;
    }
    std::atomic<int> mCallCount{0};
    std::atomic<bool> mBlock{false};
    std::atomic<bool> mInside{false};
    int mResult = 0;

private:
    std::mutex mMutex;
    std::vector<std::pair<void*, std::string>> mCalls;
    std::vector<std::string> mThreadNames;
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

TEST(PThreadUtilTest, UeventWorkerRunsOnceAtStartWithItsName) {
    RecordingObject object;
    {
        PThreadUtil worker("ThreadUEvent", &object);
        ASSERT_TRUE(waitUntil([&] { return object.mCallCount.load() == 1; }));
    }
    const auto calls = object.calls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_STREQ("ThreadUEvent", static_cast<const char*>(calls[0].first));
    EXPECT_EQ("ThreadUEvent", calls[0].second);
    EXPECT_EQ(std::vector<std::string>{"ThreadUEvent"}, object.threadNames());
}

// Other workers run nothing until handed an item (a null item is refused); destroying an
// idle worker ends it with exit value 0.
TEST(PThreadUtilTest, OtherWorkersRunOnlyHandedItemsWithTheirName) {
    LogCapture log;
    RecordingObject object;
    int item = 7;
    {
        PThreadUtil worker("socketRead", &object);
        worker.process(nullptr);
        EXPECT_TRUE(log.contains("PThreadUtil::process socketRead nullptr == data"));
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(0, object.mCallCount.load());
        worker.process(&item);
        ASSERT_TRUE(waitUntil([&] { return object.mCallCount.load() == 1; }));
    }
    const auto calls = object.calls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(&item, calls[0].first);
    EXPECT_EQ("socketRead", calls[0].second);
    EXPECT_EQ(std::vector<std::string>{"socketRead"}, object.threadNames());
    const long stop = log.indexOf("PThreadUtil::onProcess socketRead mData is null");
    const long joined = log.indexOf("~PThreadUtil socketRead exitRet:0");
    ASSERT_GE(stop, 0);
    ASSERT_GT(joined, stop);
    EXPECT_EQ(ANDROID_LOG_INFO, log.entries()[static_cast<size_t>(joined)].prio);
}

TEST(PThreadUtilTest, FailingItemIsLoggedAndWorkerGoesOn) {
    LogCapture log;
    RecordingObject object;
    object.mResult = -3;
    int a = 1, b = 2;
    {
        PThreadUtil worker("socketWrite", &object);
        worker.process(&a);
        worker.process(&b);
        ASSERT_TRUE(waitUntil([&] { return object.mCallCount.load() == 2; }));
    }
    EXPECT_EQ(2u, log.count("PThreadUtil::onProcess socketWrite retInt:-3", ANDROID_LOG_ERROR));
}

TEST(PThreadUtilTest, SecondHandOverWaitsForFirstItemToReturn) {
    RecordingObject object;
    object.mBlock = true;
    int a = 1, b = 2;
    PThreadUtil worker("socketWrite", &object);
    worker.process(&a);
    ASSERT_TRUE(waitUntil([&] { return object.mInside.load(); }));
    auto second = std::async(std::launch::async, [&] { worker.process(&b); });
    EXPECT_EQ(std::future_status::timeout, second.wait_for(50ms));
    EXPECT_EQ(1, object.mCallCount.load());
    object.mBlock = false;
    second.get();
    ASSERT_TRUE(waitUntil([&] { return object.mCallCount.load() == 2; }));
    const auto calls = object.calls();
    EXPECT_EQ(&a, calls[0].first);
    EXPECT_EQ(&b, calls[1].first);
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
    for (const auto& call : object.calls()) seen[call.first]++;
    ASSERT_EQ(items.size(), seen.size());
    for (auto& item : items) EXPECT_EQ(1, seen[&item]);
}

TEST(PThreadUtilTest, DestroyingBusyWorkerWaitsForItem) {
    LogCapture log;
    RecordingObject object;
    object.mBlock = true;
    int a = 1;
    auto worker = std::make_unique<PThreadUtil>("socketRead", &object);
    worker->process(&a);
    ASSERT_TRUE(waitUntil([&] { return object.mInside.load(); }));
    auto destroyed = std::async(std::launch::async, [&] { worker.reset(); });
    EXPECT_EQ(std::future_status::timeout, destroyed.wait_for(50ms));
    object.mBlock = false;
    destroyed.get();
    EXPECT_TRUE(log.contains("~PThreadUtil socketRead exitRet:0"));
    EXPECT_EQ(1, object.mCallCount.load());
}

// The destructor's stop request made while the uevent worker is still in its start-up
// run must end the worker once that run returns.
TEST(PThreadUtilTest, StopDuringStartupRunIsSeen) {
    LogCapture log;
    RecordingObject object;
    object.mBlock = true;
    auto worker = std::make_unique<PThreadUtil>("ThreadUEvent", &object);
    ASSERT_TRUE(waitUntil([&] { return object.mInside.load(); }));
    auto destroyed = std::async(std::launch::async, [&] { worker.reset(); });
    std::this_thread::sleep_for(30ms);
    object.mBlock = false;
    ASSERT_EQ(std::future_status::ready, destroyed.wait_for(5s));
    EXPECT_TRUE(log.contains("~PThreadUtil ThreadUEvent exitRet:0"));
    EXPECT_EQ(1, object.mCallCount.load());
}

TEST(PThreadUtilTest, ImmediateDestructionNeverHangs) {
    RecordingObject object;
    for (int i = 0; i < 200; ++i) {
        PThreadUtil worker(i % 2 ? "socketRead" : "ThreadUEvent", &object);
    }
    EXPECT_EQ(100, object.mCallCount.load());
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
