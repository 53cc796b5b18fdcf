// The camera link of a running lumacastd: the heartbeat of the models that need one.
#include <unistd.h>

#include "tests/e2e/E2eSupport.h"

namespace lumacast::e2e {

using demo::countOf;
namespace {

// Accepted, but without the link heartbeat.
constexpr test::UsbProduct kQuietCamera{0x1D6B, 0x0102, 0x0100};

// Times at which camsim has seen heartbeats, by polling its command list.
std::vector<std::chrono::steady_clock::time_point> watchHeartbeats(FakeTv& tv, size_t want,
                                                                   std::chrono::milliseconds span) {
    std::vector<std::chrono::steady_clock::time_point> seen;
    const auto deadline = std::chrono::steady_clock::now() + span;
    while (seen.size() < want && std::chrono::steady_clock::now() < deadline) {
        size_t n = 0;
        for (const std::string& c : camsimCommands(tv)) {
            if (c == "{\"cmd_id\":254,\"param\":1}") ++n;
        }
        while (seen.size() < n) seen.push_back(std::chrono::steady_clock::now());
        usleep(20 * 1000);
    }
    return seen;
}

TEST(LinkTest, HeartbeatEveryTwoSecondsOnlyForModelsThatNeedIt) {
    onFakeTv([](FakeTv& tv) {
        const sp<ILumacast> service = lumacastService();
        ASSERT_NE(service, nullptr);
        const sp<RecordingListener> listener = new RecordingListener();
        bool ok = false;

        // A model without the heartbeat: a listener and a command arm nothing.
        plugAndWait(tv, kQuietCamera, "none");
        ASSERT_TRUE(service->setCallback(listener, &ok).isOk());
        ASSERT_TRUE(service->setZoomSwitch(true, &ok).isOk());
        EXPECT_TRUE(ok);
        EXPECT_TRUE(watchHeartbeats(tv, 1, 4500ms).empty());
        std::string why;
        ASSERT_TRUE(tv.unplug(&why)) << why;
        ASSERT_TRUE(tv.waitForProperty("sys.kora.usb.status", "0", kPlugMs));

        // A model that needs it: the next command arms the 2000 ms timer for good.
        plugAndWait(tv, test::kAcceptedCamera, "none");
        ASSERT_TRUE(waitForCamsim(tv, "connected=1", kDataMs));
        ASSERT_TRUE(service->setZoomSwitch(true, &ok).isOk());
        EXPECT_TRUE(ok);
        const auto beats = watchHeartbeats(tv, 3, 9000ms);
        ASSERT_EQ(beats.size(), 3u);
        for (size_t i = 1; i < beats.size(); ++i) {
            const auto gap =
                    std::chrono::duration_cast<std::chrono::milliseconds>(beats[i] - beats[i - 1]);
            EXPECT_GT(gap.count(), 1500) << "heartbeat " << i;
            EXPECT_LT(gap.count(), 2700) << "heartbeat " << i;
        }
        // The camera's replies to them wake no command and are not logged.
        EXPECT_EQ(countOf(tv.daemonLog(), "mCmd = 254"), 0u);
        EXPECT_TRUE(service->removeCallback(listener, &ok).isOk());
    });
}

}  // namespace
}  // namespace lumacast::e2e
