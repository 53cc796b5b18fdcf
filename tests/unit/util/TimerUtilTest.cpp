#include <gtest/gtest.h>
#include <lumacast/host/LogCapture.h>
#include <sys/prctl.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/support/RecordingClient.h"
#include "util/TimerUtil.h"

using android::lumacast::TimerUtil;
using lumacast::host::LogCapture;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

// Ticks of checkAlive, the only call a timer makes, and the thread they ran on.
class TickCounter : public lumacast::test::RecordingClient {
  public:
    int checkAlive() override {
        char thread[16] = {};
        prctl(PR_GET_NAME, thread, 0, 0, 0);
        std::lock_guard<std::mutex> lock(mMutex);
        mTicks.push_back(Clock::now());
        mThreadName = thread;
        return 1;
    }
    std::vector<Clock::time_point> ticks() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mTicks;
    }

    std::string threadName() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mThreadName;
    }

  private:
    std::mutex mMutex;
    std::vector<Clock::time_point> mTicks;
    std::string mThreadName;
};

bool waitTicks(TickCounter& c, size_t n, std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    while (c.ticks().size() < n) {
        if (Clock::now() > end) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

}  // namespace

// Without a client or a name there is no thread; a non-positive interval leaves it unarmed.
TEST(TimerUtilTest, RefusedConstructionAndIntervalsNeverTick) {
    LogCapture log;
    TickCounter client;
    {
        TimerUtil noClient("SocketTimer", nullptr);
        TimerUtil noName("", &client);
        noClient.start(100);
        noName.start(100);
    }
    EXPECT_TRUE(log.contains("TimerUtil nullptr == lumacastClient err", ANDROID_LOG_ERROR));
    EXPECT_TRUE(log.contains("TimerUtil nullptr == timerName err", ANDROID_LOG_ERROR));
    EXPECT_EQ(0u, log.countContaining("~TimerUtil"));
    {
        TimerUtil timer("SocketTimer", &client);
        timer.start(0);
        timer.start(-1);
        std::this_thread::sleep_for(50ms);
        EXPECT_FALSE(timer.isStarted());
    }
    EXPECT_TRUE(log.contains("TimerUtil::start SocketTimer milliSecondInterval:0 <= 0"));
    EXPECT_TRUE(log.contains("TimerUtil::start SocketTimer milliSecondInterval:-1 <= 0"));
    EXPECT_TRUE(client.ticks().empty());
}

TEST(TimerUtilTest, TicksAtTheIntervalAndKeepsTheFirstOne) {
    LogCapture log;
    TickCounter client;
    const auto start = Clock::now();
    {
        TimerUtil timer("SocketTimer", &client);
        timer.start(200);
        timer.start(10);  // ignored: the first interval holds
        ASSERT_TRUE(waitTicks(client, 3, 10s));
    }
    EXPECT_TRUE(log.contains("TimerUtil::start SocketTimer mIsStarted:1"));
    EXPECT_EQ("SocketTimer", client.threadName());
    const auto ticks = client.ticks();
    EXPECT_GE(ticks[0] - start, 195ms);
    for (size_t i = 1; i < 3; ++i) EXPECT_GE(ticks[i] - ticks[i - 1], 195ms);
    // Three intervals; a period twice as long would need 1200 ms.
    EXPECT_LT(ticks[2] - start, 1000ms);
}

// An unarmed timer ends at once, an armed one within its interval, neither with a tick.
TEST(TimerUtilTest, DestructionEndsTheThreadWithoutTick) {
    LogCapture log;
    TickCounter client;
    auto start = Clock::now();
    { TimerUtil timer("SocketTimer", &client); }
    EXPECT_LT(Clock::now() - start, 1s);
    const long loopEnd = log.indexOf("TimerUtil::onProcess mTimeInterval is 0");
    ASSERT_GE(loopEnd, 0);
    EXPECT_GT(log.indexOf("~TimerUtil SocketTimer exitRet:0"), loopEnd);

    auto timer = std::make_unique<TimerUtil>("SocketTimer", &client);
    timer->start(2000);
    std::this_thread::sleep_for(20ms);
    start = Clock::now();
    timer.reset();
    EXPECT_LT(Clock::now() - start, 2500ms);
    EXPECT_EQ(2u, log.count("~TimerUtil SocketTimer exitRet:0"));
    EXPECT_TRUE(client.ticks().empty());
}

// Arming right after construction races the thread's first wait; the arming must never
// be lost, and a destruction right after construction must never hang.
TEST(TimerUtilTest, ArmingAndStoppingAreNeverLost) {
    for (int i = 0; i < 100; ++i) {
        TickCounter client;
        {
            TimerUtil timer("SocketTimer", &client);
            timer.start(1);
            ASSERT_TRUE(waitTicks(client, 1, 5s)) << "round " << i;
        }
        { TimerUtil timer("SocketTimer", &client); }
    }
}

// A start() on a binder thread may meet the teardown: it must not re-arm a timer that is
// stopping (its thread would tick without pause and never be joined).
TEST(TimerUtilTest, StartRacingTheStopNeverRearmsIt) {
    for (int i = 0; i < 2000; ++i) {
        TickCounter client;
        TimerUtil timer("SocketTimer", &client);
        std::atomic<bool> go{false};
        std::thread starter([&] {
            while (!go) {
            }
            timer.start(1);
        });
        go = true;
        auto stopped = std::async(std::launch::async, [&] { timer.stop(); });
        if (stopped.wait_for(10s) != std::future_status::ready) {
            fprintf(stderr, "round %d: the stopping timer was re-armed and never ends\n", i);
            _Exit(1);
        }
        starter.join();
    }
}
