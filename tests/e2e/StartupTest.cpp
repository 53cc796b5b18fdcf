// lumacastd's start-up on the fake TV: both services answer without a camera, the
// properties start where they should, and a registration refused or a peer gone cannot
// end the daemon.
#include <binder/IServiceManager.h>
#include <kora/lumacast/IKCameraMotor.h>
#include <kora/lumacast/ILumacast.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "tests/e2e/E2eSupport.h"

namespace lumacast::e2e {
namespace {

TEST(StartupTest, WithoutCameraBothServicesServeAndCameraCallsFailAtOnce) {
    TvOptions options;
    options.startDaemon = false;
    onFakeTv(options, [](FakeTv& tv) {
        // Left over from a previous run of the daemon: nobody listens after a restart.
        tv.ctl({"setprop", "kora.camera.subscribe_status", "true"});
        std::string why;
        ASSERT_TRUE(tv.startDaemon("board cedar", &why)) << why;
        EXPECT_EQ(tv.property("kora.camera.subscribe_status"), "false");
        EXPECT_EQ(tv.property("sys.kora.usb.status"), "");
        EXPECT_TRUE(tv.waitForLog("LumacastService START", kDataMs));
        // A write to a socket whose peer is gone (camera or listener) must fail, not raise
        // SIGPIPE's default action: the daemon ignores the signal process-wide.
        std::ifstream status("/proc/" + std::to_string(tv.daemonPid()) + "/status");
        std::string line;
        unsigned long long ignored = 0;
        while (std::getline(status, line)) {
            if (line.compare(0, 7, "SigIgn:") == 0)
                ignored = std::stoull(line.substr(7), nullptr, 16);
        }
        EXPECT_NE(ignored & (1ULL << (SIGPIPE - 1)), 0u) << "SigIgn " << std::hex << ignored;

        FakeTv::CtlResult r = tv.ctl({"list"});
        EXPECT_EQ(r.exitCode, 0) << r.err;
        EXPECT_NE(r.out.find("lumacastservice: [kora.lumacast.ILumacast]"), std::string::npos)
                << r.out;
        EXPECT_NE(r.out.find("cameramotorservice: [kora.lumacast.IKCameraMotor]"),
                  std::string::npos)
                << r.out;

        // Without a camera a command is refused before anything is sent, not after 3 s.
        const auto start = std::chrono::steady_clock::now();
        r = tv.ctl({"lumacast", "getZoomSwitch"});
        EXPECT_EQ(r.exitCode, 0) << r.err;
        EXPECT_EQ(r.out, "false\n");
        EXPECT_LT(std::chrono::steady_clock::now() - start, 2500ms);
        EXPECT_EQ(tv.ctl({"lumacast", "getAiAlgoList"}).out, "0\n");
        EXPECT_EQ(tv.ctl({"lumacast", "getZoomMode"}).out, "\n");
        EXPECT_TRUE(
                tv.waitForLog("LumacastService::continueProcess camera do not exit", kDataMs, 3));
        EXPECT_TRUE(tv.waitForLog("LumacastService::getZoomMode failed", kDataMs));

        // The motor service's answers before a board model is named.
        EXPECT_EQ(tv.ctl({"motor", "get_motor_status"}).out, "4\n");
        EXPECT_EQ(tv.ctl({"motor", "get_rise_time"}).out, "4\n");
        EXPECT_EQ(tv.ctl({"motor", "get_switch_status"}).out, "true\n");
        EXPECT_EQ(tv.ctl({"motor", "is_support_motor"}).out, "false\n");
        EXPECT_EQ(tv.ctl({"motor", "motor_up"}).out, "0\n");
        EXPECT_EQ(tv.ctl({"motor", "get_mcu_version"}).out, "\n");
        // dumpsys-style state, through a descriptor handed across processes.
        r = tv.ctl({"dump"});
        EXPECT_EQ(r.exitCode, 0) << r.err;
        for (const char* line :
             {"DUMP OF SERVICE lumacastservice:", "DUMP OF SERVICE cameramotorservice:",
              "  camera present: no (sys.kora.usb.status=unset)\n", "  link: DISCONNECT",
              "  heartbeat: not armed\n", "  listeners: 0\n",
              "  kora.camera.subscribe_status: false\n",
              "  commands waiting for the camera: none\n",
              "  driver: none (no set_client_type with a known board model yet)\n",
              "  motor supported: no\n"}) {
            EXPECT_NE(r.out.find(line), std::string::npos) << line << " in\n" << r.out;
        }

        // Defaults, not the hardware: nothing went over the bus.
        const std::string stats = tv.devsim("stats");
        EXPECT_NE(stats.find("\ntransfers: 0\n"), std::string::npos) << stats;
    });
}

TEST(StartupTest, ClientsReportADaemonThatDiedAsGone) {
    onFakeTv([](FakeTv& tv) {
        plugAndWait(tv, test::kAcceptedCamera, "none");
        // A camera that never answers keeps the call waiting inside the daemon.
        ASSERT_EQ(tv.camsim("rule 14 silent"), "ok");
        std::string why;
        auto listener = tv.startCtl({"listen"}, tv.path("listen.out"), &why);
        ASSERT_NE(listener, nullptr) << why;
        auto caller = tv.startCtl({"lumacast", "setZoomMode", "1", "2"}, tv.path("call.out"), &why);
        ASSERT_NE(caller, nullptr) << why;
        ASSERT_TRUE(tv.waitForLog("LumacastService::setZoomMode  ", kDataMs));
        tv.stopDaemon();
        // Exit status 3: the service is gone, which scripts can tell from a refused call.
        const int listenStatus = listener->wait(10000);
        const int callStatus = caller->wait(10000);
        ASSERT_TRUE(WIFEXITED(listenStatus)) << demo::Process::describe(listenStatus);
        EXPECT_EQ(WEXITSTATUS(listenStatus), 3);
        ASSERT_TRUE(WIFEXITED(callStatus)) << demo::Process::describe(callStatus);
        EXPECT_EQ(WEXITSTATUS(callStatus), 3);
        // Both name where they looked, so a shell without the daemon's directory shows.
        const std::string where = "registered in " + tv.path("binder") + " (LUMACAST_BINDER_DIR)";
        FakeTv::CtlResult r = tv.ctl({"--wait", "0", "lumacast", "getZoomSwitch"});
        EXPECT_EQ(r.exitCode, 3);
        EXPECT_NE(r.err.find("lumacastservice is not " + where), std::string::npos) << r.err;
        r = tv.ctl({"list"});
        EXPECT_EQ(r.exitCode, 3);
        EXPECT_NE(r.err.find("no services are " + where), std::string::npos) << r.err;
    });
}

TEST(StartupTest, FailedRegistrationsAreLoggedAndTheDaemonCarriesOn) {
    TvOptions options;
    options.startDaemon = false;
    onFakeTv(options, [](FakeTv& tv) {
        // A registry the daemon cannot use: a plain file where its folder should be.
        const std::string broken = tv.path("not-a-folder");
        { std::ofstream(broken) << "x"; }
        std::string why;
        ASSERT_TRUE(tv.startDaemon("board cedar", &why, {"LUMACAST_BINDER_DIR=" + broken}, false))
                << why;
        EXPECT_TRUE(tv.waitForLog("main addService lumacastservice failed", kDataMs));
        EXPECT_TRUE(tv.waitForLog("main addService cameramotorservice failed", kDataMs));
        // The streaming service that nobody holds is released with its threads, even while
        // its watcher may still be scanning.
        EXPECT_TRUE(tv.waitForLog("~PThreadUtil ThreadUEvent", kDataMs));
        usleep(300 * 1000);
        EXPECT_TRUE(tv.daemonRunning(&why)) << why;
    });
}

}  // namespace
}  // namespace lumacast::e2e
