// Cameras plugged in and out of a running lumacastd, commands over binder checked byte for
// byte at the camera, and frames and AI results reaching listeners in other processes.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <regex>
#include <sstream>

#include "tests/e2e/E2eSupport.h"
#include "tests/support/TestEnv.h"

namespace lumacast::e2e {
namespace {

constexpr const char* kCameraAiText = "{\"faces\":[{\"x\":120,\"y\":80,\"w\":64,\"h\":64}]}";

std::vector<std::string> withoutHeartbeats(const std::vector<std::string>& commands) {
    std::vector<std::string> out;
    for (const std::string& c : commands) {
        if (c.find("\"cmd_id\":254") == std::string::npos) out.push_back(c);
    }
    return out;
}

using lumacast::test::readFile;

TEST(StreamingTest, PlugCommandStreamUnplugTwice) {
    onFakeTv([](FakeTv& tv) {
        const sp<ILumacast> service = lumacastService();
        ASSERT_NE(service, nullptr);
        const sp<RecordingListener> listener = new RecordingListener();
        bool ok = false;
        ASSERT_TRUE(service->setCallback(listener, &ok).isOk());
        EXPECT_TRUE(ok);
        EXPECT_EQ(tv.property("kora.camera.subscribe_status"), "true");

        for (int cycle = 0; cycle < 2; ++cycle) {
            SCOPED_TRACE("cycle " + std::to_string(cycle));
            plugAndWait(tv);
            if (cycle > 0) {
                // The link's read loop waited for the camera and connects again by itself.
                ASSERT_TRUE(waitForCamsim(tv, "connected=1", kDataMs));
            }
            ASSERT_EQ(tv.camsim("rule 16 param=7"), "ok");
            ASSERT_EQ(tv.camsim("rule 12 rval=-3"), "ok");

            bool b = false;
            EXPECT_TRUE(service->setZoomMode(1, 2, &b).isOk());
            EXPECT_TRUE(b);
            b = false;
            EXPECT_TRUE(service->setAiSubscribe(-1, "{\"faces\":true}", &b).isOk());
            EXPECT_TRUE(b);
            std::string text;
            EXPECT_TRUE(service->getZoomMode(&text).isOk());
            EXPECT_EQ(text, "{\"cmd_id\":15,\"param\":1,\"rval\":0}");
            int32_t list = 0;
            EXPECT_TRUE(service->getAiAlgoList(&list).isOk());
            EXPECT_EQ(list, 7);
            b = true;
            EXPECT_TRUE(service->setAutoFraming(1, &b).isOk());
            EXPECT_FALSE(b);  // the camera answered rval -3
            EXPECT_EQ(withoutHeartbeats(camsimCommands(tv)),
                      (std::vector<std::string>{
                              "{\"cmd_id\":14,\"param\":1,\"mode\":2}",
                              "{\"cmd_id\":1,\"param\":-1,\"option\":{\"faces\":true}}",
                              "{\"cmd_id\":15,\"param\":0}", "{\"cmd_id\":16,\"param\":0}",
                              "{\"cmd_id\":12,\"param\":1}"}));

            // What the camera pushes arrives whole and in order.
            ASSERT_TRUE(listener->waitForAll(20, 3, 3, std::chrono::milliseconds(kDataMs)));
            const std::vector<RecordingListener::Frame> frames = listener->frames();
            for (size_t i = 0; i < frames.size(); ++i) {
                EXPECT_EQ(frames[i].blockCount, 1);
                EXPECT_EQ(frames[i].size, 16384u);
                EXPECT_TRUE(frames[i].patternOk) << "frame " << i;
                if (i > 0) {
                    EXPECT_EQ(frames[i].blockParam, frames[i - 1].blockParam + 1);
                }
            }
            for (const std::string& ai : listener->ai()) EXPECT_EQ(ai, kCameraAiText);

            std::string why;
            ASSERT_TRUE(tv.unplug(&why)) << why;
            ASSERT_TRUE(tv.waitForProperty("sys.kora.usb.status", "0", kPlugMs));
            EXPECT_TRUE(tv.waitForLog("SocketClient camera do not exit, wait", kDataMs, cycle + 1));
            b = true;
            EXPECT_TRUE(service->getZoomSwitch(&b).isOk());
            EXPECT_FALSE(b);
            // Nothing more arrives once the camera is gone.
            const size_t after = listener->frameCount();
            usleep(300 * 1000);
            EXPECT_EQ(listener->frameCount(), after);
            listener->clear();
        }
        EXPECT_TRUE(service->removeCallback(listener, &ok).isOk());
        EXPECT_TRUE(ok);
        EXPECT_EQ(tv.property("kora.camera.subscribe_status"), "false");
    });
}

// A listener that calls the service from inside its first onFrame; binder runs that call
// on the daemon's delivering thread.
class CallingListener : public RecordingListener {
  public:
    explicit CallingListener(std::function<void()> action) : mAction(std::move(action)) {}
    android::binder::Status onFrame(int32_t blockCount, int32_t blockParam,
                                    const std::vector<uint8_t>& data) override {
        if (!mActed.exchange(true)) mAction();
        return RecordingListener::onFrame(blockCount, blockParam, data);
    }

  private:
    const std::function<void()> mAction;
    std::atomic<bool> mActed{false};
};

// Listeners in other processes: one is killed, one removes itself and one sends a command
// from inside their callbacks; the others keep receiving.
TEST(StreamingTest, KilledAndCallingListenersDoNotStopTheOthers) {
    onFakeTv([](FakeTv& tv) {
        plugAndWait(tv);
        const sp<ILumacast> service = lumacastService();
        ASSERT_NE(service, nullptr);
        std::string why;
        const std::string doomedOut = tv.path("doomed.out");
        std::unique_ptr<demo::Process> doomed =
                tv.startCtl({"listen", "--quiet", "--interval", "0.1"}, doomedOut, &why);
        ASSERT_NE(doomed, nullptr) << why;
        sp<CallingListener> quitter;
        std::atomic<bool> removed{false};
        std::atomic<bool> commandFailed{false};
        quitter = new CallingListener([&] {
            bool ok = false;
            removed = service->removeCallback(quitter, &ok).isOk() && ok;
        });
        const sp<CallingListener> commander = new CallingListener([&] {
            bool on = true;
            commandFailed = service->getZoomSwitch(&on).isOk() && !on;
        });
        const sp<RecordingListener> survivor = new RecordingListener();
        bool ok = false;
        for (const sp<RecordingListener>& l :
             {sp<RecordingListener>(quitter), sp<RecordingListener>(commander), survivor}) {
            ASSERT_TRUE(service->setCallback(l, &ok).isOk());
            ASSERT_TRUE(ok);
        }
        // The first command connects the link; data flows from then on.
        EXPECT_EQ(tv.ctl({"lumacast", "setAiSubscribeType", "1"}).out, "true\n");
        ASSERT_TRUE(survivor->waitForFrames(30, std::chrono::milliseconds(kDataMs)));
        ASSERT_TRUE(commander->waitForFrames(30, std::chrono::milliseconds(kDataMs)));
        EXPECT_TRUE(removed);
        EXPECT_EQ(1u, quitter->frameCount());
        EXPECT_TRUE(commandFailed);
        EXPECT_TRUE(
                tv.waitForLog("LumacastService::continueProcess camera command from inside a "
                              "listener's callback refused",
                              kDataMs));
        // Nothing was sent for the refused command; commands from elsewhere are served.
        for (const std::string& c : camsimCommands(tv)) {
            EXPECT_EQ(c.find("\"cmd_id\":15"), std::string::npos) << c;
        }
        bool on = false;
        EXPECT_TRUE(service->getZoomSwitch(&on).isOk());
        EXPECT_TRUE(on);
        // The doomed listener is in the middle of receiving too.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kDataMs);
        while (readFile(doomedOut).find("frame=1") == std::string::npos &&
               std::chrono::steady_clock::now() < deadline) {
            usleep(20 * 1000);
        }
        ASSERT_NE(readFile(doomedOut).find("frame=1"), std::string::npos) << readFile(doomedOut);

        const pid_t doomedPid = doomed->pid();
        doomed->stop(SIGKILL, 5000);
        const size_t before = survivor->frameCount();
        EXPECT_TRUE(survivor->waitForFrames(before + 30, std::chrono::milliseconds(kDataMs)));
        std::vector<RecordingListener::Frame> frames = survivor->frames();
        for (size_t i = 1; i < frames.size(); ++i) {
            EXPECT_EQ(frames[i].blockParam, frames[i - 1].blockParam + 1) << "frame " << i;
        }

        // The dead listener stays registered; nobody removed it.
        const FakeTv::CtlResult dump = tv.ctl({"dump", "lumacast"});
        EXPECT_EQ(dump.exitCode, 0) << dump.err;
        for (const char* line :
             {"  camera present: yes (sys.kora.usb.status=1)\n",
              "  link: CONNECTED, camera flag set\n", "  camera model needs heartbeat: yes\n",
              "  heartbeat: every 2000 ms\n", "  listeners: 3\n"}) {
            EXPECT_NE(dump.out.find(line), std::string::npos) << line << " in\n" << dump.out;
        }
        // Each listener's caller and deliveries; the dead one's calls fail as a dead peer's.
        const std::string failedLine =
                "#[1-3] pid " + std::to_string(doomedPid) +
                ": delivered [1-9]\\d*, failed [1-9]\\d*, last failure: transaction error " +
                std::to_string(android::DEAD_OBJECT) + "\n";
        const std::string goodLine =
                "#[1-3] pid " + std::to_string(getpid()) + ": delivered [1-9]\\d*, failed 0\n";
        EXPECT_TRUE(std::regex_search(dump.out, std::regex("\n    " + failedLine))) << dump.out;
        EXPECT_TRUE(std::regex_search(dump.out, std::regex("\n    " + goodLine))) << dump.out;
        EXPECT_EQ(0u,
                  tv.ctl({"dump", "lumacast", "--help"}).out.find("lumacastservice dump shows:\n"));

        // A listener arriving after the death is served as well.
        const FakeTv::CtlResult late =
                tv.ctl({"listen", "--count", "20", "--quiet", "--require", "frame"});
        EXPECT_EQ(late.exitCode, 0) << late.out << late.err;
        ASSERT_TRUE(tv.daemonRunning(&why)) << why;
        EXPECT_TRUE(service->removeCallback(commander, &ok).isOk());
        EXPECT_TRUE(service->removeCallback(survivor, &ok).isOk());
    });
}

}  // namespace
}  // namespace lumacast::e2e
