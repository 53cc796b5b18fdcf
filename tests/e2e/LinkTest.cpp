// The camera link of a running lumacastd: a camera that drops the connection or stops
// answering for a while, and the heartbeat of the models that need one.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <kora/lumacast/ILumacast.h>
#include <unistd.h>

#include "tests/e2e/E2eSupport.h"

using android::sp;
using kora::lumacast::ILumacast;

namespace lumacast::e2e {

using demo::countOf;
namespace {

// Accepted, but without the link heartbeat.
constexpr test::UsbProduct kQuietCamera{0x1D6B, 0x0102, 0x0100};

sp<ILumacast> lumacastService() {
    android::ProcessState::self()->startThreadPool();
    return android::interface_cast<ILumacast>(
            android::defaultServiceManager()->getService(android::String16("lumacastservice")));
}

TEST(LinkTest, CameraDroppingTheConnectionIsReconnectedAndStreamsAgain) {
    onFakeTv([](FakeTv& tv) {
        plugAndWait(tv);
        const sp<ILumacast> service = lumacastService();
        ASSERT_NE(service, nullptr);
        const sp<RecordingListener> listener = new RecordingListener();
        bool ok = false;
        ASSERT_TRUE(service->setCallback(listener, &ok).isOk());
        ASSERT_TRUE(service->setAiSubscribeType(1, &ok).isOk());
        EXPECT_TRUE(ok);
        ASSERT_TRUE(listener->waitForFrames(5, std::chrono::milliseconds(kDataMs)));

        // An orderly close and a reset: the read loop connects again by itself.
        for (const char* how : {"drop", "drop reset"}) {
            SCOPED_TRACE(how);
            const std::string status = tv.camsim("status");
            const int before = atoi(status.c_str() + status.find("connections=") + 12);
            ASSERT_EQ(tv.camsim(how), "ok");
            EXPECT_TRUE(waitForCamsim(
                    tv, "connections=" + std::to_string(before + 1) + " connected=1", kDataMs));
            const size_t frames = listener->frameCount();
            EXPECT_TRUE(listener->waitForFrames(frames + 5, std::chrono::milliseconds(kDataMs)));
            ok = false;
            EXPECT_TRUE(service->setZoomSwitch(true, &ok).isOk());
            EXPECT_TRUE(ok);
        }

        // The camera's software restarts and refuses connections longer than the read loop
        // keeps trying; the next command connects again.
        ASSERT_EQ(tv.camsim("refuse on"), "ok");
        ASSERT_EQ(tv.camsim("drop reset"), "ok");
        EXPECT_TRUE(tv.waitForLog("SocketClient::socketRead reconnectSts:0 reconnectCount:10",
                                  kDataMs));
        ok = true;
        EXPECT_TRUE(service->setZoomSwitch(true, &ok).isOk());
        EXPECT_FALSE(ok);
        EXPECT_TRUE(tv.waitForLog("LumacastService::continueProcess DISCONNECT return", kDataMs));
        ASSERT_EQ(tv.camsim("refuse off"), "ok");
        ok = false;
        EXPECT_TRUE(service->setZoomSwitch(true, &ok).isOk());
        EXPECT_TRUE(ok);
        const size_t frames = listener->frameCount();
        EXPECT_TRUE(listener->waitForFrames(frames + 5, std::chrono::milliseconds(kDataMs)));
        EXPECT_TRUE(service->removeCallback(listener, &ok).isOk());
    });
}

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
