#include "util/SignalUtil.h"

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include <lumacast/host/LogCapture.h>

using android::lumacast::SignalUtil;
using lumacast::host::LogCapture;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

void waitForWaiter(SignalUtil& s) {
    while (!s.isWaiting()) std::this_thread::sleep_for(100us);
}

}  // namespace

TEST(SignalUtilTest, InvalidTimeoutsReturnAtOnce) {
    SignalUtil s;
    EXPECT_EQ(-1, s.wait(0));
    EXPECT_EQ(-1, s.wait(-5));
    EXPECT_FALSE(s.isWaiting());
}

TEST(SignalUtilTest, SecondWaiterIsRefused) {
    LogCapture log;
    SignalUtil s;
    auto first = std::async(std::launch::async, [&] { return s.wait(); });
    waitForWaiter(s);
    EXPECT_EQ(-2, s.wait());
    EXPECT_EQ(-2, s.wait(3000));
    s.signal();
    EXPECT_EQ(0, first.get());
    EXPECT_TRUE(log.contains("SignalUtil::wait  pthread_cond_wait retWait = 0"));
}

TEST(SignalUtilTest, SignalEndsTimedWaitEarly) {
    SignalUtil s;
    const auto start = Clock::now();
    auto waiter = std::async(std::launch::async, [&] { return s.wait(10000); });
    waitForWaiter(s);
    s.signal();
    EXPECT_EQ(0, waiter.get());
    EXPECT_LT(Clock::now() - start, 5s);
}

TEST(SignalUtilTest, SignalWithoutWaiterIsLost) {
    LogCapture log;
    SignalUtil s;
    s.signal();
    EXPECT_TRUE(log.contains("SignalUtil::signal mIsWaiting:0", ANDROID_LOG_DEBUG));
    const auto start = Clock::now();
    EXPECT_EQ(0, s.wait(100));
    EXPECT_GE(Clock::now() - start, 95ms);
}

// A signal given once the waiter is registered is never lost, however the threads meet.
TEST(SignalUtilTest, RepeatedHandshakesNeverLoseASignal) {
    SignalUtil s;
    for (int i = 0; i < 2000; ++i) {
        auto waiter = std::async(std::launch::async, [&] { return s.wait(); });
        waitForWaiter(s);
        s.signal();
        ASSERT_EQ(std::future_status::ready, waiter.wait_for(5s)) << "round " << i;
        ASSERT_EQ(0, waiter.get());
    }
}

TEST(SignalUtilTest, DeadlineCarriesIntoSeconds) {
    struct timeval now;
    now.tv_sec = 5;
    now.tv_usec = 999999;
    struct timespec d = SignalUtil::deadlineFrom(now, 1);
    EXPECT_EQ(6, d.tv_sec);
    EXPECT_EQ(999000, d.tv_nsec);

    now.tv_usec = 999000;
    d = SignalUtil::deadlineFrom(now, 1);
    EXPECT_EQ(6, d.tv_sec);
    EXPECT_EQ(0, d.tv_nsec);

    now.tv_usec = 0;
    d = SignalUtil::deadlineFrom(now, 1001);
    EXPECT_EQ(6, d.tv_sec);
    EXPECT_EQ(1000000, d.tv_nsec);

    now.tv_usec = 500000;
    d = SignalUtil::deadlineFrom(now, 3000);
    EXPECT_EQ(8, d.tv_sec);
    EXPECT_EQ(500000000, d.tv_nsec);

    now.tv_usec = 999999;
    d = SignalUtil::deadlineFrom(now, 999);
    EXPECT_EQ(6, d.tv_sec);
    EXPECT_EQ(998999000, d.tv_nsec);
}

// An armed signal keeps a signal() that comes before the wait; only that one wait.
TEST(SignalUtilTest, ArmedSignalKeepsOneEarlySignal) {
    LogCapture log;
    SignalUtil s;
    s.signal();  // before arming: lost as always
    s.arm();
    s.signal();
    EXPECT_EQ(1u, log.count("SignalUtil::signal mIsWaiting:0"));
    auto early = std::async(std::launch::async, [&] { return s.wait(60000); });
    ASSERT_EQ(std::future_status::ready, early.wait_for(5s));
    EXPECT_EQ(0, early.get());

    // The arm was used up, and re-arming forgets a signal given before: both next waits
    // run into their time-outs.
    for (int i = 0; i < 2; ++i) {
        const auto start = Clock::now();
        EXPECT_EQ(0, s.wait(100));
        EXPECT_GE(Clock::now() - start, 95ms);
        s.arm();
        s.signal();
        s.arm();
    }
}

// Arm, let another thread signal whenever it likes, then wait: never lost.
TEST(SignalUtilTest, ArmedHandshakesNeverLoseASignal) {
    SignalUtil s;
    for (int i = 0; i < 2000; ++i) {
        s.arm();
        std::thread signaller([&] { s.signal(); });
        auto waiter = std::async(std::launch::async, [&] { return s.wait(60000); });
        ASSERT_EQ(std::future_status::ready, waiter.wait_for(5s)) << "round " << i;
        ASSERT_EQ(0, waiter.get());
        signaller.join();
    }
}
