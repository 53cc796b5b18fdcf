#include <gtest/gtest.h>
#include <lumacast/host/LogCapture.h>

#include <chrono>
#include <future>
#include <thread>

#include "util/SignalUtil.h"

using android::lumacast::SignalUtil;
using lumacast::host::LogCapture;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

void waitForWaiter(SignalUtil& s) {
    while (!s.isWaiting()) std::this_thread::sleep_for(100us);
}

void expectTimesOut(SignalUtil& s) {
    const auto start = Clock::now();
    EXPECT_EQ(0, s.wait(100));
    EXPECT_GE(Clock::now() - start, 95ms);
}

}  // namespace

// Bad time-outs and a second waiter are refused at once; a signal ends a timed wait early.
TEST(SignalUtilTest, OneWaiterAtATime) {
    SignalUtil s;
    EXPECT_EQ(-1, s.wait(0));
    EXPECT_EQ(-1, s.wait(-5));
    EXPECT_FALSE(s.isWaiting());
    auto first = std::async(std::launch::async, [&] { return s.wait(10000); });
    waitForWaiter(s);
    EXPECT_EQ(-2, s.wait());
    EXPECT_EQ(-2, s.wait(3000));
    s.signal();
    ASSERT_EQ(std::future_status::ready, first.wait_for(5s));
    EXPECT_EQ(0, first.get());
}

// Unarmed, a signal without a waiter is lost. Armed, one early signal is kept for one wait
// only, and re-arming forgets a signal given before.
TEST(SignalUtilTest, OnlyAnArmedSignalIsKeptForLater) {
    LogCapture log;
    SignalUtil s;
    s.signal();
    EXPECT_TRUE(log.contains("SignalUtil::signal mIsWaiting:0", ANDROID_LOG_DEBUG));
    expectTimesOut(s);
    s.arm();
    s.signal();
    EXPECT_EQ(1u, log.count("SignalUtil::signal mIsWaiting:0"));
    auto early = std::async(std::launch::async, [&] { return s.wait(60000); });
    ASSERT_EQ(std::future_status::ready, early.wait_for(5s));
    EXPECT_EQ(0, early.get());
    expectTimesOut(s);
    s.arm();
    s.signal();
    s.arm();
    expectTimesOut(s);
}

// However the threads meet, a signal given once the waiter is registered, or after arm(),
// is never lost.
TEST(SignalUtilTest, HandshakesNeverLoseASignal) {
    constexpr int kRounds = 2000;
    LogCapture log;
    SignalUtil s;
    for (int i = 0; i < kRounds; ++i) {
        auto waiter = std::async(std::launch::async, [&] { return s.wait(); });
        waitForWaiter(s);
        s.signal();
        ASSERT_EQ(std::future_status::ready, waiter.wait_for(5s)) << "round " << i;
        ASSERT_EQ(0, waiter.get());
    }
    EXPECT_EQ(size_t{kRounds}, log.count("SignalUtil::wait  pthread_cond_wait retWait = 0"));
    for (int i = 0; i < kRounds; ++i) {
        s.arm();
        std::thread signaller([&] { s.signal(); });
        auto waiter = std::async(std::launch::async, [&] { return s.wait(60000); });
        ASSERT_EQ(std::future_status::ready, waiter.wait_for(5s)) << "armed round " << i;
        ASSERT_EQ(0, waiter.get());
        signaller.join();
    }
}

TEST(SignalUtilTest, DeadlineCarriesIntoSeconds) {
    struct Case {
        long usec;
        int ms;
        time_t sec;
        long nsec;
    };
    const Case cases[] = {{999999, 1, 6, 999000},
                          {999000, 1, 6, 0},
                          {0, 1001, 6, 1000000},
                          {500000, 3000, 8, 500000000},
                          {999999, 999, 6, 998999000}};
    for (const Case& c : cases) {
        const struct timeval now = {5, c.usec};
        const struct timespec d = SignalUtil::deadlineFrom(now, c.ms);
        EXPECT_EQ(c.sec, d.tv_sec) << c.usec << " us + " << c.ms << " ms";
        EXPECT_EQ(c.nsec, d.tv_nsec) << c.usec << " us + " << c.ms << " ms";
    }
}
