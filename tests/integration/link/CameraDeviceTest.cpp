// The streaming service on the fake device: the real watcher recognises the camera and
// sets up usb0, the link reaches camsim in the camera's own network namespace through it,
// the heartbeat starts for a camera model that needs it, data reaches a listener, and the
// camera can leave and come back.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <hardware_legacy/uevent.h>
#include <lumacast/host/LogCapture.h>
#include <sched.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "service/LumacastService.h"
#include "tests/support/FakeDevice.h"
#include "tests/unit/service/ServiceTestSupport.h"
#include "tools/camsim/CameraSimulator.h"

namespace lumacast::test {
namespace {

using camsim::CameraSimulator;
using camsim::Command;

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = 20s) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

// camsim serving from inside the camera's network namespace: its sockets are made by
// threads that entered that namespace, and keep it.
std::unique_ptr<CameraSimulator> cameraIn(const FakeDevice& device) {
    std::unique_ptr<CameraSimulator> camera;
    std::thread([&] {
        const int ns = open(device.cameraNetns().c_str(), O_RDONLY | O_CLOEXEC);
        if (ns < 0 || setns(ns, CLONE_NEWNET) != 0) return;
        close(ns);
        camera = std::make_unique<CameraSimulator>(FakeDevice::kCameraAddress, 10001);
        if (!camera->start()) camera.reset();
    }).join();
    return camera;
}

size_t heartbeats(const CameraSimulator& camera) {
    size_t n = 0;
    for (const Command& c : camera.commands()) n += c.cmdId == 254;
    return n;
}

TEST(CameraDevice, PlugHeartbeatDataUnplugAndReturn) {
    EXPECT_TRUE(runIsolated([] {
        FakeDevice device;
        std::string why;
        ASSERT_TRUE(device.setUp(&why)) << why;
        host::LogCapture log;
        uevent_init();  // open before anything is plugged, so no uevent is missed
        sp<LumacastService> service = new LumacastService();

        ASSERT_TRUE(device.plug(kAcceptedCamera));
        ASSERT_TRUE(waitUntil([] { return property("sys.kora.usb.status") == "1"; }));
        // The camera's address exists once it is plugged.
        std::unique_ptr<CameraSimulator> camera = cameraIn(device);
        ASSERT_TRUE(camera != nullptr) << "camsim could not start in the camera namespace";

        // A listener on a camera model that needs the heartbeat arms the 2000 ms timer.
        sp<TestListener> listener = new TestListener();
        bool ok = false;
        service->setCallback(listener, &ok);
        ASSERT_TRUE(ok);
        service->setZoomMode(1, 2, &ok);
        EXPECT_TRUE(ok) << "command over usb0 to the camera";
        ASSERT_TRUE(waitUntil([&] { return heartbeats(*camera) >= 1; }, 10s));
        EXPECT_EQ(camsim::commandFrame("{\"cmd_id\":254,\"param\":1}"),
                  camera->commands().back().frame);
        // A second registration does not restart it.
        service->setCallback(listener, &ok);
        EXPECT_TRUE(log.contains("TimerUtil::start SocketTimer mIsStarted:1"));

        ASSERT_TRUE(camera->send(camsim::dataMessage(camsim::kTypeFrame, {"frame"}, 3)));
        ASSERT_TRUE(listener->waitForCount(1));
        EXPECT_EQ("frame", listener->events()[0].data);

        // Unplugged: the property goes to "0" and commands are refused.
        ASSERT_TRUE(device.unplug());
        ASSERT_TRUE(waitUntil([] { return property("sys.kora.usb.status") == "0"; }));
        service->setAutoFraming(1, &ok);
        EXPECT_FALSE(ok);
        EXPECT_TRUE(log.contains("LumacastService::continueProcess camera do not exit"));

        // Back again: commands and data flow once more.
        ASSERT_TRUE(device.plug(kAcceptedCamera));
        ASSERT_TRUE(waitUntil([] { return property("sys.kora.usb.status") == "1"; }));
        ASSERT_TRUE(waitUntil([&] {
            bool back = false;
            service->setAutoFraming(1, &back);
            return back;
        }));
        const size_t before = listener->count();
        ASSERT_TRUE(waitUntil([&] {
            camera->send(camsim::dataMessage(camsim::kTypeFrame, {"again"}));
            return listener->count() > before;
        }));

        auto done = std::async(std::launch::async, [&] { service.clear(); });
        EXPECT_EQ(std::future_status::ready, done.wait_for(30s));
        camera.reset();
    }));
}

}  // namespace
}  // namespace lumacast::test
