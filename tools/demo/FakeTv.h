#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/support/FakeDevice.h"
#include "tools/demo/Process.h"

namespace lumacast::demo {

// The whole simulated television around a real lumacastd: the fake device (sysfs, /dev, the
// camera's USB network in a namespace of its own), camsim playing the camera, lumacastd with
// devsim preloaded as the motor board, and lumacastctl as the client. Build it only inside
// mount and network namespaces of the caller's own (unshare -rmn, or a NAMESPACE test).
//
// Every program shares this object's work folder: the binder registry, the property store,
// the control sockets and the logs live there, and the environment of this process points
// at them, so in-process binder clients see the same services.
class FakeTv {
  public:
    struct CtlResult {
        int exitCode = -1;  // -1 when lumacastctl did not exit normally in time
        std::string out;
        std::string err;
    };

    // `workDir` must exist and be empty; it is left in place.
    explicit FakeTv(std::string workDir);
    ~FakeTv();
    FakeTv(const FakeTv&) = delete;
    FakeTv& operator=(const FakeTv&) = delete;

    // The fake device, with no camera plugged in.
    bool setUp(std::string* why);
    // lumacastd with devsim preloaded; `devsimInit` is devsim's start-up commands ("board
    // cedar"). Returns once both services are registered and the daemon listens for
    // uevents, or, with `waitForServices` false, once it runs; `env` adds "NAME=value"
    // entries to its environment.
    bool startDaemon(const std::string& devsimInit, std::string* why,
                     const std::vector<std::string>& env = {}, bool waitForServices = true);
    pid_t daemonPid() const { return mDaemon.pid(); }
    // Whether lumacastd still runs; a daemon that died is reported with its log's tail.
    bool daemonRunning(std::string* why = nullptr);
    // Kills lumacastd as the platform would; its wait status.
    int stopDaemon();
    // Restarts camsim while the camera stays plugged in (its software restarting).
    bool restartCamsim(const std::string& scene, std::string* why);
    void tearDown();

    test::FakeDevice& device() { return mDevice; }

    // The camera with both USB functions reporting `product`, as a kernel announces it; the
    // camera's software (camsim, `scene` "default" streaming frames and AI results, or "none")
    // starts first, as it boots while the TV enumerates the device.
    bool plug(const test::UsbProduct& product, const std::string& scene, std::string* why);
    // The camera's functions go, in the kernel's order, and its software with them.
    bool unplug(std::string* why);

    // One camsim control command; its reply ("ok ..." or "error: ...").
    std::string camsim(const std::string& command);
    // One devsim control command in the daemon; its reply.
    std::string devsim(const std::string& command);

    // Runs lumacastctl with `args` and collects what it printed.
    CtlResult ctl(const std::vector<std::string>& args, int timeoutMs = 30000);
    // Starts lumacastctl in the background; its output goes to `outPath`.
    std::unique_ptr<Process> startCtl(const std::vector<std::string>& args,
                                      const std::string& outPath, std::string* why);

    // lumacastd's log so far (logcat lines).
    std::string daemonLog() const;
    // Waits until the daemon's log holds `text` at least `count` times.
    bool waitForLog(const std::string& text, int timeoutMs, int count = 1) const;
    std::string property(const std::string& name) const;
    bool waitForProperty(const std::string& name, const std::string& value, int timeoutMs) const;

    const std::string& workDir() const { return mWorkDir; }
    std::string path(const std::string& name) const { return mWorkDir + "/" + name; }
    static const char* lumacastctlPath();
    static const char* devsimctlPath();

  private:
    bool startCamsim(const std::string& scene, std::string* why);
    void stopCamsim();
    bool waitForServices(int timeoutMs, std::string* why);

    const std::string mWorkDir;
    test::FakeDevice mDevice;
    bool mDeviceUp = false;
    Process mCamsim;
    Process mDaemon;
    int mCamsimFd = -1;
};

// Occurrences of `needle` in `haystack`.
size_t countOf(const std::string& haystack, const std::string& needle);

}  // namespace lumacast::demo
