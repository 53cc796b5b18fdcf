// Soak: the real lumacastd on the fake TV for a fixed time (LUMACAST_SOAK_SECONDS, 60 by
// default; any length by hand), under whatever sanitizer this build has, with everything
// at once: client threads calling every streaming and motor method (with hostile
// arguments among them), camsim pushing frames fast, the camera unplugged and plugged
// every few hundred milliseconds, camsim dropping, resetting and refusing connections and
// sending garbage, listener processes started and killed, firmware upgrades running. In
// the second half of the run, a camera that accepts connections and hangs up at once for a
// moment in every plug cycle, and listener processes that remove their listener from
// inside their first frame.
//
// Passes only when the daemon never dies (a sanitizer report ends it), every call returns
// within its bound, the daemon's live heap and descriptors are the same between two quiet
// points (after a warm-up and at the end), LeakSanitizer finds nothing in the running
// daemon (asan build), and the daemon ends when asked. Prints what it did.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <ctype.h>
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <kora/lumacast/BnLumacastCallback.h>
#include <kora/lumacast/IKCameraMotor.h>
#include <kora/lumacast/ILumacast.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/FakeDevice.h"
#include "tests/support/TestEnv.h"
#include "tools/demo/FakeTv.h"

namespace lumacast::soak {
namespace {

using android::sp;
using android::String16;
using android::binder::Status;
using demo::FakeTv;
using kora::lumacast::IKCameraMotor;
using kora::lumacast::ILumacast;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Generous bounds: a camera command waits up to 3 s for its answer; a slow sanitizer build
// may add a lot to that, never minutes.
constexpr auto kStreamingBound = 15s;
constexpr auto kMotorBound = 30s;
constexpr auto kUpgradeBound = 120s;
constexpr auto kQuiesceBound = 60s;
// Growth of the daemon's live heap allowed between the two quiet points (resident memory
// would not do: allocator and sanitizer caches move it by tens of megabytes). The live heap of a
// quiet daemon holds its registry, one frame slot per link and a few buffers; anything kept per
// call, frame, plug or listener would pass this by far within a minute of the soak.
constexpr long kHeapSlackBytes = 2 * 1024 * 1024;

int soakSeconds() {
    const char* s = getenv("LUMACAST_SOAK_SECONDS");
    const int v = s != nullptr ? atoi(s) : 0;
    return v > 0 ? v : 60;
}

struct Counters {
    std::atomic<long> streamingCalls{0};
    std::atomic<long> motorCalls{0};
    std::atomic<long> upgrades{0};
    std::atomic<long> frames{0};
    std::atomic<long> aiBlocks{0};
    std::atomic<long> plugCycles{0};
    std::atomic<long> camerasSeen{0};
    std::atomic<long> reconnects{0};
    std::atomic<long> listenersStarted{0};
    std::atomic<long> listenersKilled{0};
    std::atomic<long> hangups{0};
    std::atomic<long> quittersStarted{0};
    std::atomic<long> quittersRemoved{0};
};

class CountingListener : public kora::lumacast::BnLumacastCallback {
  public:
    explicit CountingListener(Counters* c) : mCounters(c) {}
    Status onAiData(const std::string&) override {
        ++mCounters->aiBlocks;
        return Status::ok();
    }
    Status onProtoBuf(const std::vector<uint8_t>&) override {
        ++mCounters->aiBlocks;
        return Status::ok();
    }
    Status onFrame(int32_t, int32_t, const std::vector<uint8_t>&) override {
        ++mCounters->frames;
        return Status::ok();
    }

  private:
    Counters* mCounters;
};

// Lets the main thread stop every client between two calls, to look at a quiet daemon.
class Gate {
  public:
    // Waits while paused; false once the run is over.
    bool enter() {
        std::unique_lock<std::mutex> lock(mMutex);
        mCond.wait(lock, [this] { return !mPaused || mOver; });
        if (mOver) return false;
        ++mActive;
        return true;
    }
    void leave() {
        std::lock_guard<std::mutex> lock(mMutex);
        --mActive;
        mCond.notify_all();
    }
    // Until no client is inside a call; false after the bound.
    bool pause() {
        std::unique_lock<std::mutex> lock(mMutex);
        mPaused = true;
        return mCond.wait_for(lock, kQuiesceBound, [this] { return mActive == 0; });
    }
    void resume() {
        std::lock_guard<std::mutex> lock(mMutex);
        mPaused = false;
        mCond.notify_all();
    }
    void finish() {
        std::lock_guard<std::mutex> lock(mMutex);
        mOver = true;
        mCond.notify_all();
    }

  private:
    std::mutex mMutex;
    std::condition_variable mCond;
    bool mPaused = false;
    bool mOver = false;
    int mActive = 0;
};

// The slowest call of each method, and every call that broke its bound.
class Timings {
  public:
    template <typename F>
    void time(const std::string& name, std::chrono::milliseconds bound, F call) {
        const auto start = Clock::now();
        const Status status = call();
        const auto took =
                std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
        std::lock_guard<std::mutex> lock(mMutex);
        mWorst[name] = std::max(mWorst[name], took);
        if (took > bound) {
            mBroken.push_back(name + " took " + std::to_string(took.count()) + " ms");
        }
        // Every operation answers ok; anything else means the transport failed.
        if (!status.isOk()) mBroken.push_back(name + ": " + status.toString8().c_str());
    }
    std::vector<std::string> broken() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mBroken;
    }
    std::string worst() {
        std::lock_guard<std::mutex> lock(mMutex);
        std::string out;
        for (const auto& [name, ms] : mWorst) {
            out += " " + name + "=" + std::to_string(ms.count());
        }
        return out;
    }

  private:
    std::mutex mMutex;
    std::map<std::string, std::chrono::milliseconds> mWorst;
    std::vector<std::string> mBroken;
};

// Strings a client may send: ordinary ones, ones at and past the command buffer's limits,
// and some that are not what the camera expects at all.
std::string argument(std::mt19937& rng) {
    const std::string choices[] = {"",
                                   std::string(95 + rng() % 10, 'a'),
                                   std::string(185 + rng() % 20, 'b'),
                                   std::string(300, '{'),
                                   "\"quoted\",\"cmd_id\":1",
                                   "face_detect=1"};
    return choices[rng() % std::size(choices)];
}

// One streaming call picked by rng.
void streamingCall(const sp<ILumacast>& s, Timings* t, std::mt19937& rng) {
    bool b = false;
    int32_t v = 0;
    std::string text;
    const int32_t a = static_cast<int32_t>(rng() % 5) - 1;
    const std::pair<const char*, std::function<Status()>> calls[] = {
            {"setZoomSwitch", [&] { return s->setZoomSwitch(a > 0, &b); }},
            {"getZoomSwitch", [&] { return s->getZoomSwitch(&b); }},
            {"getAiAlgoList", [&] { return s->getAiAlgoList(&v); }},
            {"setAiSubscribeType", [&] { return s->setAiSubscribeType(a, &b); }},
            {"getAiSubscribeStatus", [&] { return s->getAiSubscribeStatus(&v); }},
            {"setAiProperty", [&] { return s->setAiProperty(argument(rng), &b); }},
            {"getAiProperty", [&] { return s->getAiProperty(argument(rng), &text); }},
            {"setAiSubscribe", [&] { return s->setAiSubscribe(a, argument(rng), &b); }},
            {"getAiSubscribe", [&] { return s->getAiSubscribe(&text); }},
            {"grabFrame", [&] { return s->grabFrame(a, argument(rng), &b); }},
            {"sendDoa", [&] { return s->sendDoa(argument(rng), &b); }},
            {"setAutoFraming", [&] { return s->setAutoFraming(a, &b); }},
            {"getAutoFraming", [&] { return s->getAutoFraming(&b); }},
            {"setZoomMode", [&] { return s->setZoomMode(a, a + 1, &b); }},
            {"getZoomMode", [&] { return s->getZoomMode(&text); }},
    };
    const auto& [name, call] = calls[rng() % std::size(calls)];
    t->time(name, kStreamingBound, call);
}

void streamingClient(const sp<ILumacast>& s, Gate* gate, Timings* t, Counters* c, int seed) {
    std::mt19937 rng(seed);
    const sp<CountingListener> own = new CountingListener(c);
    while (gate->enter()) {
        bool b = false;
        if (rng() % 4 == 0) {
            // A listener comes for one call and goes again, so that no quiet point finds it.
            t->time("setCallback", kStreamingBound, [&] { return s->setCallback(own, &b); });
            streamingCall(s, t, rng);
            t->time("removeCallback", kStreamingBound, [&] { return s->removeCallback(own, &b); });
            c->streamingCalls += 3;
        } else if (rng() % 8 == 0) {
            // One that was never registered.
            t->time("removeCallback", kStreamingBound, [&] { return s->removeCallback(own, &b); });
            ++c->streamingCalls;
        } else {
            streamingCall(s, t, rng);
            ++c->streamingCalls;
        }
        gate->leave();
    }
}

void motorClient(const sp<IKCameraMotor>& m, Gate* gate, Timings* t, Counters* c, int seed) {
    std::mt19937 rng(seed);
    while (gate->enter()) {
        int32_t v = 0;
        bool b = false;
        std::string text;
        const std::pair<const char*, std::function<Status()>> calls[] = {
                {"motor_up", [&] { return m->motor_up(&v); }},
                {"motor_down", [&] { return m->motor_down(&v); }},
                {"get_motor_status", [&] { return m->get_motor_status(&v); }},
                {"get_rise_time", [&] { return m->get_rise_time(&v); }},
                {"get_switch_status", [&] { return m->get_switch_status(&b); }},
                {"is_support_motor", [&] { return m->is_support_motor(&b); }},
                {"set_status", [&] { return m->set_status(rng() % 2 == 0); }},
                {"get_status", [&] { return m->get_status(&b); }},
                {"get_mcu_version", [&] { return m->get_mcu_version(&text); }},
        };
        const auto& [name, call] = calls[rng() % std::size(calls)];
        t->time(name, kMotorBound, call);
        ++c->motorCalls;
        gate->leave();
    }
}

void upgrader(const sp<IKCameraMotor>& m, const std::string& image, Gate* gate, Timings* t,
              Counters* c) {
    while (gate->enter()) {
        int32_t result = 0;
        t->time("mcu_upgrade", kUpgradeBound, [&] { return m->mcu_upgrade(image, &result); });
        ++c->upgrades;
        gate->leave();
    }
}

// LeakCheckOnSignal writes the daemon's live heap bytes into the file on SIGUSR1.
long daemonHeapBytes(pid_t pid, const std::string& file) {
    unlink(file.c_str());
    if (kill(pid, SIGUSR1) != 0) return -1;
    const auto deadline = Clock::now() + 10s;
    while (Clock::now() < deadline) {
        std::ifstream in(file);
        long bytes = -1;
        if (in >> bytes) return bytes;
        std::this_thread::sleep_for(20ms);
    }
    return -1;
}

// What the daemon's descriptors point at ("socket:[123]", "/dev/null", ...), sorted.
std::vector<std::string> daemonFds(pid_t pid) {
    const std::string path = "/proc/" + std::to_string(pid) + "/fd";
    std::vector<std::string> fds;
    DIR* dir = opendir(path.c_str());
    if (dir == nullptr) return fds;
    while (const dirent* e = readdir(dir)) {
        if (e->d_name[0] == '.') continue;
        char target[256];
        const ssize_t n = readlink((path + "/" + e->d_name).c_str(), target, sizeof(target) - 1);
        fds.emplace_back(target, n > 0 ? static_cast<size_t>(n) : 0);
    }
    closedir(dir);
    std::sort(fds.begin(), fds.end());
    return fds;
}

// A descriptor that lives for one call (a property file being replaced, a socket being
// connected) is no leak: the fewest seen over a second, a look every 100 ms.
std::vector<std::string> settledDaemonFds(pid_t pid) {
    std::vector<std::string> fewest = daemonFds(pid);
    for (int i = 0; i < 10; ++i) {
        std::this_thread::sleep_for(100ms);
        std::vector<std::string> now = daemonFds(pid);
        if (now.size() < fewest.size()) fewest = std::move(now);
    }
    return fewest;
}

std::string joined(const std::vector<std::string>& v) {
    std::string out;
    for (const std::string& s : v) out += (out.empty() ? "" : " ") + s;
    return out;
}

// The camera's side and the listener processes, driven from the main thread (the fake TV
// is not shared between threads).
class Chaos {
  public:
    Chaos(FakeTv* tv, Counters* c) : mTv(tv), mCounters(c), mRng(7) {}

    void cycle() {
        std::string why;
        if (!mTv->plug(test::kAcceptedCamera, "default", &why)) {
            ADD_FAILURE() << "plug: " << why;
            return;
        }
        ++mCounters->plugCycles;
        mTv->camsim("stream frame size=16384 rate=100");
        // Unplugged before the daemon has even seen it, the camera would test nothing but
        // the watcher (a sanitizer build may take a second to set the camera up).
        if (mTv->waitForProperty("sys.kora.usb.status", "1", 5000)) ++mCounters->camerasSeen;
        if (mPeerPhase) misbehavingPeers();
        // Now and then a camera that stays long enough for commands to be answered.
        const int pieces = mRng() % 5 == 0 ? 12 : 2 + mRng() % 3;
        for (int i = 0; i < pieces; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(60 + mRng() % 120));
            misbehave();
            listeners();
        }
        countConnections();
        if (!mTv->unplug(&why)) ADD_FAILURE() << "unplug: " << why;
        std::this_thread::sleep_for(std::chrono::milliseconds(50 + mRng() % 150));
    }

    // Ends every listener process, the polite way (it removes its listener) or not.
    void quiet() {
        for (auto& p : mListeners) stopListener(p.get());
        mListeners.clear();
        reapQuitters();
        for (auto& p : mQuitters) p->stop(SIGKILL, 5000);
        mQuitters.clear();
    }

    void setPeerPhase(bool on) { mPeerPhase = on; }

  private:
    void reapQuitters() {
        for (auto it = mQuitters.begin(); it != mQuitters.end();) {
            if ((*it)->running()) {
                ++it;
                continue;
            }
            const int status = (*it)->status();
            if (WIFEXITED(status) && WEXITSTATUS(status) == 0) ++mCounters->quittersRemoved;
            it = mQuitters.erase(it);
        }
    }
    // A camera that accepts and hangs up at once for a moment, and a listener process that
    // removes its listener from inside its first frame.
    void misbehavingPeers() {
        reapQuitters();
        if (mQuitters.size() < 2) {
            auto p = std::make_unique<demo::Process>();
            demo::Process::Options options;
            options.argv = {SOAK_QUITTING_LISTENER};
            options.stderrPath = mTv->path("quitter.err");
            std::string why;
            if (p->start(options, &why)) {
                ++mCounters->quittersStarted;
                mQuitters.push_back(std::move(p));
            } else {
                ADD_FAILURE() << "quitting listener: " << why;
            }
        }
        mTv->camsim("hangup close");
        std::this_thread::sleep_for(std::chrono::milliseconds(200 + mRng() % 200));
        mTv->camsim("hangup off");
        ++mCounters->hangups;
    }

    // Drops the connection (with a reset or not), refuses connections for a moment, sends
    // garbage, answers late, answers normally again, or does nothing.
    void misbehave() {
        static const std::vector<std::vector<std::string>> kActs = {{"drop"},
                                                                    {"drop reset"},
                                                                    {"refuse on", "refuse off"},
                                                                    {"garbage 200"},
                                                                    {"rule default delay=500"},
                                                                    {"clear-rules"},
                                                                    {},
                                                                    {}};
        const auto& commands = kActs[mRng() % kActs.size()];
        for (size_t i = 0; i < commands.size(); ++i) {
            if (i > 0) std::this_thread::sleep_for(std::chrono::milliseconds(80));
            mTv->camsim(commands[i]);
        }
    }
    void listeners() {
        if (mListeners.size() < 3 && mRng() % 3 == 0) {
            std::string why;
            const std::string out = mTv->path("listen-" + std::to_string(mSequence++) + ".out");
            auto p = mTv->startCtl({"listen", "--seconds", "30"}, out, &why);
            if (p != nullptr) {
                ++mCounters->listenersStarted;
                mListeners.push_back(std::move(p));
            }
        } else if (!mListeners.empty() && mRng() % 3 == 0) {
            stopListener(mListeners.front().get());
            mListeners.erase(mListeners.begin());
        }
    }
    void stopListener(demo::Process* p) {
        // A killed listener stays in the daemon's list (it keeps no death notices); a
        // interrupted one removes itself.
        p->stop(mRng() % 2 == 0 ? SIGKILL : SIGINT, 5000);
        ++mCounters->listenersKilled;
    }
    void countConnections() {
        const std::string status = mTv->camsim("status");
        const size_t at = status.find("connections=");
        if (at != std::string::npos) mCounters->reconnects += atol(status.c_str() + at + 12);
    }

    FakeTv* mTv;
    Counters* mCounters;
    std::mt19937 mRng;
    std::vector<std::unique_ptr<demo::Process>> mListeners;
    std::vector<std::unique_ptr<demo::Process>> mQuitters;
    bool mPeerPhase = false;
    int mSequence = 0;
};

struct QuietPoint {
    long heapBytes;
    std::vector<std::string> fds;
};

QuietPoint quiesce(FakeTv& tv, Gate& gate, Chaos& chaos) {
    EXPECT_TRUE(gate.pause()) << "a client call did not return";
    chaos.quiet();
    // Let the daemon see the camera gone and the dead listeners' sessions close.
    std::this_thread::sleep_for(3s);
    // devsim lives in the daemon's heap too; its transfer log grows to a cap of its own.
    EXPECT_EQ(tv.devsim("clear-log"), "ok");
    const pid_t pid = tv.daemonPid();
    return QuietPoint{daemonHeapBytes(pid, tv.path("heap")), settledDaemonFds(pid)};
}

// The first sanitizer report in the daemon's log, without the logcat lines of other
// threads that run through it.
std::string sanitizerReport(const std::string& log) {
    size_t at = std::string::npos;
    for (const char* marker : {"ERROR: AddressSanitizer", "ERROR: LeakSanitizer",
                               "WARNING: ThreadSanitizer", "runtime error:"}) {
        at = std::min(at, log.find(marker));
    }
    if (at == std::string::npos) return "";
    std::istringstream in(log.substr(log.rfind('\n', at) + 1));
    std::string report;
    std::string line;
    // Logcat lines begin "MM-DD hh:mm:ss.mmm".
    while (std::getline(in, line) && report.size() < 20000) {
        const bool logcat = line.size() > 5 && isdigit(static_cast<unsigned char>(line[0])) &&
                            line[2] == '-' && line[5] == ' ';
        if (!logcat) report += line + "\n";
    }
    return report;
}

// Starts the daemon with LeakCheckOnSignal preloaded and, in an asan build, leak detection
// on (for the check on request) and a small quarantine; in a tsan build with tsan.supp.
bool startDaemon(FakeTv& tv, std::string* why) {
    std::vector<std::string> env = {"LD_PRELOAD=" SOAK_PRELOAD, "SOAK_HEAP_FILE=" + tv.path("heap"),
                                    "SOAK_HEAP_PROFILE=1"};
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // Run by hand, the sanitizer options of ctest's presets may be missing here.
    const auto withOptions = [](const char* name, const std::string& ours) {
        const char* given = getenv(name);
        return std::string(name) + "=" + (given != nullptr ? std::string(given) + ":" : "") + ours;
    };
#endif
#if defined(__SANITIZE_ADDRESS__)
    env.push_back(withOptions("ASAN_OPTIONS",
                              "detect_leaks=1:quarantine_size_mb=16:malloc_context_size=12"));
#endif
#if defined(__SANITIZE_THREAD__)
    env.push_back(withOptions("TSAN_OPTIONS", "suppressions=" SOAK_TSAN_SUPPRESSIONS));
#endif
    // The fake TV would add ASAN_OPTIONS of its own (leak detection off); one entry only.
    const char* asan = getenv("ASAN_OPTIONS");
    const std::string saved = asan != nullptr ? asan : "";
    unsetenv("ASAN_OPTIONS");
    const bool ok = tv.startDaemon("board cedar", why, env);
    if (asan != nullptr) setenv("ASAN_OPTIONS", saved.c_str(), 1);
    return ok;
}

void soak(FakeTv& tv) {
    const int seconds = soakSeconds();
    std::string why;
    ASSERT_TRUE(startDaemon(tv, &why)) << why;
    android::ProcessState::self()->startThreadPool();
    const auto sm = android::defaultServiceManager();
    const sp<ILumacast> streaming =
            android::interface_cast<ILumacast>(sm->getService(String16("lumacastservice")));
    const sp<IKCameraMotor> motor =
            android::interface_cast<IKCameraMotor>(sm->getService(String16("cameramotorservice")));
    ASSERT_NE(streaming, nullptr);
    ASSERT_NE(motor, nullptr);
    ASSERT_TRUE(motor->set_client_type("MT9652-CEDAR").isOk());
    const std::string image = tv.path("mcu.bin");
    {
        std::string bytes(600, '\0');
        for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 13 + 5);
        std::ofstream(image, std::ios::binary) << bytes;
    }

    Counters counters;
    Timings timings;
    Gate gate;
    sp<CountingListener> listener = new CountingListener(&counters);
    bool ok = false;
    ASSERT_TRUE(streaming->setCallback(listener, &ok).isOk());
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(streamingClient, streaming, &gate, &timings, &counters, i + 1);
    }
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back(motorClient, motor, &gate, &timings, &counters, i + 11);
    }
    threads.emplace_back(upgrader, motor, image, &gate, &timings, &counters);

    Chaos chaos(&tv, &counters);
    const auto start = Clock::now();
    const auto warmUpEnd = start + std::chrono::seconds(std::max(5, seconds / 6));
    const auto end = start + std::chrono::seconds(seconds);
    while (Clock::now() < warmUpEnd && tv.daemonRunning()) chaos.cycle();
    const QuietPoint first = quiesce(tv, gate, chaos);
    gate.resume();
    const auto peerPhase = warmUpEnd + (end - warmUpEnd) / 2;
    while (Clock::now() < end && tv.daemonRunning()) {
        chaos.setPeerPhase(Clock::now() >= peerPhase);
        chaos.cycle();
    }
    const QuietPoint last = quiesce(tv, gate, chaos);
    gate.finish();
    for (std::thread& t : threads) t.join();
    streaming->removeCallback(listener, &ok);

    const bool alive = tv.daemonRunning(&why);
    EXPECT_TRUE(alive) << why;
    for (const std::string& b : timings.broken()) ADD_FAILURE() << b;
    EXPECT_LE(last.fds.size(), first.fds.size())
            << "descriptors grew: " << joined(first.fds) << " -> " << joined(last.fds);
    ASSERT_GE(first.heapBytes, 0) << "the daemon did not report its heap";
    ASSERT_GE(last.heapBytes, 0) << "the daemon did not report its heap";
    EXPECT_LE(last.heapBytes - first.heapBytes, kHeapSlackBytes) << "live heap grew";

    if (alive) {
        // LeakCheckOnSignal: the daemon checks itself for leaks and ends.
        kill(tv.daemonPid(), SIGUSR2);
        const auto deadline = Clock::now() + 60s;
        while (tv.daemonRunning(&why) && Clock::now() < deadline) std::this_thread::sleep_for(50ms);
        EXPECT_NE(why.find("lumacastd exited 0"), std::string::npos)
                << "the daemon did not end cleanly when asked: " << why;
    }
    EXPECT_GT(counters.quittersRemoved.load(), 0)
            << "no listener process removed itself from inside its callback";
    const std::string report = sanitizerReport(tv.daemonLog());
    EXPECT_EQ(report, "") << "sanitizer report in the daemon's log:\n" << report;

    printf("soak: %d s; calls: streaming %ld, motor %ld, upgrades %ld; frames delivered %ld, AI "
           "blocks %ld; plug cycles %ld (camera seen in %ld); reconnects %ld; listener "
           "processes %ld started, %ld ended; cameras hanging up %ld; listeners removing "
           "themselves in their callback %ld of %ld\n",
           seconds, counters.streamingCalls.load(), counters.motorCalls.load(),
           counters.upgrades.load(), counters.frames.load(), counters.aiBlocks.load(),
           counters.plugCycles.load(), counters.camerasSeen.load(), counters.reconnects.load(),
           counters.listenersStarted.load(), counters.listenersKilled.load(),
           counters.hangups.load(), counters.quittersRemoved.load(),
           counters.quittersStarted.load());
    printf("soak: daemon live heap %ld -> %ld bytes, descriptors %zu -> %zu; slowest calls "
           "(ms):%s\n",
           first.heapBytes, last.heapBytes, first.fds.size(), last.fds.size(),
           timings.worst().c_str());
    fflush(stdout);
}

TEST(SoakTest, DaemonUnderEverythingAtOnce) {
    // Short: Unix socket paths live under it.
    const std::string dir = test::testTempDir() + "/tv";
    EXPECT_TRUE(test::runIsolated([&] {
        ASSERT_EQ(mkdir(dir.c_str(), 0755), 0) << dir;
        FakeTv tv(dir);
        std::string why;
        ASSERT_TRUE(tv.setUp(&why)) << why;
        soak(tv);
        if (::testing::Test::HasFailure()) {
            const std::string log = tv.daemonLog();
            const size_t from = log.size() > 6000 ? log.size() - 6000 : 0;
            fprintf(stderr, "---- lumacastd log (end) ----\n%s\n", log.substr(from).c_str());
        }
    }));
}

}  // namespace
}  // namespace lumacast::soak
