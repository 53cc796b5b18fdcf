// bench_daemon: lumacastd's start-up and memory, each against a baseline measured in the
// same run.
//   start-up   exec to both services registered; baseline: a bare program that registers
//              two empty binder objects under the same names (BareDaemon.cpp: what any
//              daemon of this kind pays for the binder runtime)
//   idle RSS   resident memory a second after start-up, against the same bare program
//   streaming  resident memory, peak and at the end, while the fake TV's camera streams
//   RSS        64 KiB frames at 100 Hz to a listener, against the same daemon's idle RSS
//
//   bench_daemon [--smoke]
// Lines: daemon_startup_ms=..., daemon_startup_ratio=..., daemon_idle_rss_kb=...,
// daemon_idle_rss_ratio=..., daemon_streaming_rss_peak_kb=..., daemon_streaming_rss_ratio=...
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/support/BenchEnv.h"
#include "tests/support/Namespace.h"
#include "tools/demo/FakeTv.h"

using android::BBinder;
using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

namespace {

const char* const kServices[] = {"lumacastservice", "cameramotorservice"};

std::string gBinderDir;

// Stale registrations of a killed daemon would only slow the lookups down.
void clearRegistry() {
    DIR* dir = opendir(gBinderDir.c_str());
    if (dir == nullptr) return;
    while (const dirent* e = readdir(dir)) {
        if (strncmp(e->d_name, "service.", 8) == 0) unlink((gBinderDir + "/" + e->d_name).c_str());
    }
    closedir(dir);
}

pid_t launch(const char* path, const char* arg) {
    const pid_t pid = fork();
    if (pid == 0) {
        const int null = open("/dev/null", O_RDWR);
        dup2(null, 1);
        dup2(null, 2);
        execl(path, path, arg, nullptr);
        _exit(127);
    }
    return pid;
}

bool registered() {
    const sp<android::IServiceManager> sm = android::defaultServiceManager();
    for (const char* name : kServices) {
        if (sm->checkService(String16(name)) == nullptr) return false;
    }
    return true;
}

long rssKb(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.compare(0, 6, "VmRSS:") == 0) return atol(line.c_str() + 6);
    }
    return -1;
}

struct Start {
    double ms;
    long idleRssKb;
};

// One start of `path`: time until both services answer, then its memory once it settled.
Start startOnce(const char* path, const char* arg, std::chrono::milliseconds settle) {
    clearRegistry();
    const auto t0 = Clock::now();
    const pid_t pid = launch(path, arg);
    while (!registered()) {
        if (Clock::now() - t0 > 20s || waitpid(pid, nullptr, WNOHANG) == pid) {
            fprintf(stderr, "%s did not register its services\n", path);
            exit(1);
        }
        std::this_thread::sleep_for(200us);
    }
    Start s;
    s.ms = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
    std::this_thread::sleep_for(settle);
    s.idleRssKb = rssKb(pid);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return s;
}

// A listener answering the three calls by hand, counting frames.
class Listener : public BBinder {
  public:
    std::atomic<long> frames{0};

  protected:
    status_t onTransact(uint32_t code, const Parcel&, Parcel* reply, uint32_t) override {
        if (code == 3) ++frames;
        return reply->writeInt32(0);
    }
};

status_t call(const sp<IBinder>& service, uint32_t code, const sp<IBinder>& listener) {
    Parcel data;
    Parcel reply;
    data.writeInterfaceToken(String16(u"kora.lumacast.ILumacast"));
    if (listener != nullptr) data.writeStrongBinder(listener);
    return service->transact(code, data, &reply);
}

struct Streaming {
    long idleKb = 0;
    long peakKb = 0;
    long endKb = 0;
    long frames = 0;
};

Streaming streamingRun(const std::string& tvDir, std::chrono::seconds length) {
    Streaming r;
    {
        lumacast::demo::FakeTv tv(tvDir);
        std::string why;
        if (!tv.setUp(&why) || !tv.startDaemon("board cedar", &why)) {
            fprintf(stderr, "fake TV: %s\n", why.c_str());
            exit(1);
        }
        std::this_thread::sleep_for(1s);
        r.idleKb = rssKb(tv.daemonPid());
        android::ProcessState::self()->startThreadPool();
        const sp<IBinder> service =
                android::defaultServiceManager()->getService(String16("lumacastservice"));
        sp<Listener> listener = new Listener;
        if (service == nullptr || call(service, 1, listener) != OK ||
            !tv.plug(lumacast::test::kAcceptedCamera, "none", &why) ||
            !tv.waitForProperty("sys.kora.usb.status", "1", 15000)) {
            fprintf(stderr, "camera: %s\n", why.c_str());
            exit(1);
        }
        // A camera command connects the link (the camera's software may still be
        // starting: ask again until it is connected); then the camera streams.
        const auto connectBy = Clock::now() + 15s;
        while (tv.camsim("status").find("connected=1") == std::string::npos) {
            if (Clock::now() > connectBy) {
                fprintf(stderr, "the link did not connect\n");
                exit(1);
            }
            call(service, 4, nullptr);
        }
        tv.camsim("stream frame size=65536 rate=100");
        tv.camsim("stream json rate=20");
        const auto end = Clock::now() + length;
        while (Clock::now() < end) {
            r.peakKb = std::max(r.peakKb, rssKb(tv.daemonPid()));
            std::this_thread::sleep_for(100ms);
        }
        r.endKb = rssKb(tv.daemonPid());
        r.frames = listener->frames;
        call(service, 2, listener);
        tv.tearDown();
    }
    return r;
}

}  // namespace

int main(int argc, char** argv) {
    // A namespace of its own, but not the link benchmarks' one: here the camera's address
    // belongs to the fake TV's camera, not to this side's loopback.
    lumacast::bench::holdCpusAwake();
    lumacast::test::enterNamespaceOrExit();
    const bool smoke = lumacast::bench::hasFlag(argc, argv, "--smoke");
    signal(SIGPIPE, SIG_IGN);
    // One folder for everything: this process's binder runtime reads its registry folder
    // once, and the fake TV of the streaming part keeps its registry in "binder" below.
    static std::string tvDir;
    {
        char templ[] = "/tmp/lumacast-bench-tv-XXXXXX";
        if (mkdtemp(templ) == nullptr) return 1;
        tvDir = templ;
    }
    atexit([] { lumacast::test::runCommand("rm -rf '" + tvDir + "'"); });
    gBinderDir = tvDir + "/binder";
    mkdir(gBinderDir.c_str(), 0700);
    mkdir((tvDir + "/properties").c_str(), 0700);
    setenv("LUMACAST_BINDER_DIR", gBinderDir.c_str(), 1);
    setenv("LUMACAST_PROPERTY_DIR", (tvDir + "/properties").c_str(), 1);
    // The daemon's log lines stand in for logd; on the host they would measure a pipe.
    setenv("LUMACAST_LOG_QUIET", "1", 1);

    const int rounds = smoke ? 2 : 11;
    const auto settle = smoke ? 200ms : 1000ms;
    std::vector<double> startMs, bareMs, startRatio, rss, bareRss;
    for (int r = 0; r < rounds; ++r) {
        const Start bare = startOnce(BARE_DAEMON, nullptr, settle);
        const Start daemon = startOnce(LUMACASTD, nullptr, settle);
        bareMs.push_back(bare.ms);
        startMs.push_back(daemon.ms);
        startRatio.push_back(daemon.ms / bare.ms);
        rss.push_back(static_cast<double>(daemon.idleRssKb));
        bareRss.push_back(static_cast<double>(bare.idleRssKb));
    }
    using lumacast::bench::median;
    printf("daemon_startup_ms=%.2f\n", median(startMs));
    printf("bare_startup_ms=%.2f\n", median(bareMs));
    printf("daemon_startup_ratio=%.3f\n", median(startRatio));
    printf("daemon_idle_rss_kb=%.0f\n", median(rss));
    printf("bare_idle_rss_kb=%.0f\n", median(bareRss));
    printf("daemon_idle_rss_ratio=%.3f\n", median(rss) / median(bareRss));

    const Streaming s = streamingRun(tvDir, smoke ? 2s : 20s);
    if (s.frames == 0) {
        fprintf(stderr, "no frame reached the listener\n");
        return 1;
    }
    printf("streaming: %ld frames of 64 KiB delivered\n", s.frames);
    printf("daemon_streaming_idle_rss_kb=%ld\n", s.idleKb);
    printf("daemon_streaming_rss_peak_kb=%ld\n", s.peakKb);
    printf("daemon_streaming_rss_end_kb=%ld\n", s.endKb);
    printf("daemon_streaming_rss_ratio=%.3f\n",
           static_cast<double>(s.peakKb) / static_cast<double>(s.idleKb));
    return 0;
}
