// bench_fanout: what the streaming service's fan-out costs per listener. Frame blocks go
// through processFrame to 1, 4 and 16 listeners, first in this process, then each in a
// listener process of its own; the cost is set against, in the same round, one bare call of
// the same listener without the service (a direct call in process, one binder transaction
// across processes).
//
//   bench_fanout [--smoke]
// Lines: fanout_<inproc|xproc>_<n>_us_per_listener=..., and ratios (medians over rounds):
//   fanout_xproc_<n>_ratio       cost per listener / one transaction
//   fanout_inproc_<n>_ratio      cost per delivery / (one copy of the block + n calls)
//   fanout_xproc_forwarded_ratio the fan-out to one listener over the very proxy the
//                                baseline uses (through an in-process forwarder) / one
//                                transaction: what the fan-out code itself adds
// Every listener process counts what it receives; a count that differs fails the run.
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "aidl/BpLumacastCallback.h"
#include "bench/support/BenchEnv.h"
#include "service/LumacastService.h"

using android::BBinder;
using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::binder::Status;
using android::lumacast::LumacastService;
using kora::lumacast::ILumacastCallback;
using Clock = std::chrono::steady_clock;

namespace {

constexpr size_t kBlock = 64 * 1024;
constexpr int kCounts[] = {1, 4, 16};
const char16_t* const kServiceName = u"lumacastservice";

class LocalListener : public android::BnInterface<ILumacastCallback> {
  public:
    std::atomic<long> frames{0};
    Status onAiData(const std::string&) override { return Status::ok(); }
    Status onProtoBuf(const std::vector<uint8_t>&) override { return Status::ok(); }
    Status onFrame(int32_t, int32_t, const std::vector<uint8_t>& data) override {
        if (!data.empty()) ++frames;
        return Status::ok();
    }
};

// Hands every frame to another listener: lets the bench run the service's fan-out over the
// very proxy it uses for the bare baseline.
class Forwarder : public android::BnInterface<ILumacastCallback> {
  public:
    explicit Forwarder(sp<ILumacastCallback> to) : mTo(std::move(to)) {}
    Status onAiData(const std::string&) override { return Status::ok(); }
    Status onProtoBuf(const std::vector<uint8_t>&) override { return Status::ok(); }
    Status onFrame(int32_t count, int32_t param, const std::vector<uint8_t>& data) override {
        return mTo->onFrame(count, param, data);
    }

  private:
    sp<ILumacastCallback> mTo;
};

// --- listener process -------------------------------------------------------------------

// A listener as an application writes it, answering the three calls by hand.
class RemoteListener : public BBinder {
  public:
    std::atomic<long> frames{0};

  protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t) override {
        if (code < 1 || code > 3) return android::UNKNOWN_TRANSACTION;
        if (!data.enforceInterface(ILumacastCallback::descriptor)) return android::BAD_TYPE;
        if (code == 3) ++frames;
        return reply->writeInt32(0);  // ok status
    }
};

bool callService(const sp<IBinder>& service, uint32_t code, const sp<IBinder>& listener) {
    Parcel data;
    Parcel reply;
    data.writeInterfaceToken(String16(u"kora.lumacast.ILumacast"));
    data.writeStrongBinder(listener);
    return service->transact(code, data, &reply) == OK && reply.readInt32() == 0 &&
           reply.readBool();
}

// Keeps the listener binders that listener processes hand in, so the bench calls them
// through the same kind of reference the service holds.
class Collector : public BBinder {
  public:
    sp<IBinder> get(int index) {
        std::lock_guard<std::mutex> lock(mMutex);
        return index < static_cast<int>(mBinders.size()) ? mBinders[index] : nullptr;
    }

  protected:
    status_t onTransact(uint32_t, const Parcel& data, Parcel*, uint32_t) override {
        const int32_t index = data.readInt32();
        sp<IBinder> binder;
        if (index < 0 || index >= 16 || data.readStrongBinder(&binder) != OK) {
            return android::BAD_VALUE;
        }
        std::lock_guard<std::mutex> lock(mMutex);
        if (mBinders.size() <= static_cast<size_t>(index)) mBinders.resize(index + 1);
        mBinders[index] = binder;
        return OK;
    }

  private:
    std::mutex mMutex;
    std::vector<sp<IBinder>> mBinders;
};

// Commands on stdin, one byte each: r register, u unregister and report the frame count
// (as text, on stdout), q quit.
int listenerMain(int index) {
    android::ProcessState::self()->startThreadPool();
    const sp<IBinder> service =
            android::defaultServiceManager()->getService(String16(kServiceName));
    if (service == nullptr) return 1;
    sp<RemoteListener> listener = new RemoteListener;
    // Also handed to the bench, which calls it directly for the baseline.
    const sp<IBinder> collector =
            android::defaultServiceManager()->getService(String16(u"bench.collector"));
    Parcel data;
    Parcel reply;
    data.writeInt32(index);
    data.writeStrongBinder(listener);
    if (collector == nullptr || collector->transact(1, data, &reply) != OK) return 1;
    char command;
    while (read(0, &command, 1) == 1) {
        if (command == 'r' && !callService(service, 1, listener)) return 1;
        if (command == 'u') {
            if (!callService(service, 2, listener)) return 1;
            dprintf(1, "%ld\n", listener->frames.exchange(0));
        }
        if (command == 'q') break;
        if (command == 'r') dprintf(1, "ok\n");
    }
    return 0;
}

// --- bench ------------------------------------------------------------------------------

struct Child {
    pid_t pid;
    int in;
    FILE* out;
};

Child spawnListener(int index) {
    int toChild[2];
    int fromChild[2];
    if (pipe2(toChild, O_CLOEXEC) != 0 || pipe2(fromChild, O_CLOEXEC) != 0) exit(1);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(toChild[0], 0);
        dup2(fromChild[1], 1);
        const std::string arg = std::to_string(index);
        execl("/proc/self/exe", "bench_fanout", "--listener", arg.c_str(), nullptr);
        _exit(127);
    }
    close(toChild[0]);
    close(fromChild[1]);
    return Child{pid, toChild[1], fdopen(fromChild[0], "r")};
}

std::string ask(const Child& c, char command) {
    if (write(c.in, &command, 1) != 1) return "";
    char line[64] = {};
    if (fgets(line, sizeof(line), c.out) == nullptr) return "";
    return std::string(line, strcspn(line, "\n"));
}

// Microseconds per call of fn over `count` calls.
double usPerCall(int count, const std::function<void()>& fn) {
    const auto start = Clock::now();
    for (int i = 0; i < count; ++i) fn();
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count() / count;
}

// One figure per round for each listener count; medians are printed, so that load from
// other processes drifting between rounds moves a round, not the result.
struct Series {
    std::vector<double> bare;
    std::vector<double> empty;
    std::vector<double> perDelivery[3];
    std::vector<double> ratio[3];
};

void report(const char* where, const Series& s) {
    using lumacast::bench::median;
    printf("fanout_%s_bare_us_per_call=%.3f\n", where, median(s.bare));
    for (int k = 0; k < 3; ++k) {
        const int n = kCounts[k];
        std::vector<double> perListener;
        for (size_t r = 0; r < s.empty.size(); ++r) {
            perListener.push_back((s.perDelivery[k][r] - s.empty[r]) / n);
        }
        printf("fanout_%s_%d_us_per_delivery=%.3f\n", where, n, median(s.perDelivery[k]));
        printf("fanout_%s_%d_us_per_listener=%.3f\n", where, n, median(perListener));
        printf("fanout_%s_%d_ratio=%.3f\n", where, n, median(s.ratio[k]));
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && strcmp(argv[1], "--listener") == 0) return listenerMain(atoi(argv[2]));

    lumacast::bench::enterBenchNamespace();
    static std::string binderDir = [] {
        char templ[] = "/tmp/lumacast-bench-binder-XXXXXX";
        if (mkdtemp(templ) == nullptr) exit(1);
        return std::string(templ);
    }();
    setenv("LUMACAST_BINDER_DIR", binderDir.c_str(), 1);
    atexit([] { lumacast::test::runCommand("rm -rf '" + binderDir + "'"); });
    signal(SIGPIPE, SIG_IGN);

    const bool smoke = lumacast::bench::hasFlag(argc, argv, "--smoke");
    const int rounds = smoke ? 1 : 9;
    const int localCalls = smoke ? 100 : 5000;
    const int remoteCalls = smoke ? 10 : 200;
    printf("frame blocks of %zu bytes; medians of %d rounds\n", kBlock, rounds);

    android::ProcessState::self()->startThreadPool();
    sp<LumacastService> service = new LumacastService;
    android::defaultServiceManager()->addService(String16(kServiceName), service);
    sp<Collector> collector = new Collector;
    android::defaultServiceManager()->addService(String16(u"bench.collector"), collector);
    std::vector<uint8_t> block(kBlock, 0x5a);
    auto deliver = [&] { service->processFrame(1, 0, block.data(), static_cast<int>(kBlock)); };

    // In process a listener call costs next to nothing beside the block's copy, so the
    // bare cost is what a delivery cannot do without: one copy and one call per listener.
    {
        std::vector<sp<LocalListener>> listeners;
        for (int i = 0; i < 16; ++i) listeners.push_back(new LocalListener);
        Series s;
        for (int r = 0; r < rounds; ++r) {
            const double copy = usPerCall(localCalls, [&] {
                std::vector<uint8_t> c(block);
                listeners[0]->onFrame(1, 0, c);
            });
            s.bare.push_back(usPerCall(localCalls, [&] { listeners[0]->onFrame(1, 0, block); }));
            s.empty.push_back(usPerCall(localCalls, deliver));
            for (int k = 0; k < 3; ++k) {
                const int n = kCounts[k];
                bool ok = false;
                for (int i = 0; i < n; ++i) service->setCallback(listeners[i], &ok);
                s.perDelivery[k].push_back(usPerCall(localCalls, deliver));
                for (int i = 0; i < n; ++i) service->removeCallback(listeners[i], &ok);
                s.ratio[k].push_back(s.perDelivery[k].back() / (copy + (n - 1) * s.bare.back()));
            }
        }
        report("inproc", s);
    }

    // Across processes: the bare cost is one transaction to a listener process.
    std::vector<Child> children;
    for (int i = 0; i < 16; ++i) children.push_back(spawnListener(i));
    int failures = 0;
    {
        sp<IBinder> direct;
        for (int i = 0; i < 500 && direct == nullptr; ++i) {
            direct = collector->get(0);
            if (direct == nullptr) usleep(10 * 1000);
        }
        if (direct == nullptr) {
            fprintf(stderr, "listener process did not start\n");
            return 1;
        }
        const sp<ILumacastCallback> proxy = ILumacastCallback::asInterface(direct);
        // The service's fan-out to that same proxy, through an in-process forwarder: what
        // the fan-out itself adds to one transaction.
        {
            sp<Forwarder> forwarder = new Forwarder(proxy);
            bool ok = false;
            service->setCallback(forwarder, &ok);
            std::vector<double> ratios;
            for (int r = 0; r < rounds; ++r) {
                const double bare = usPerCall(remoteCalls, [&] { proxy->onFrame(1, 0, block); });
                ratios.push_back(usPerCall(remoteCalls, deliver) / bare);
            }
            service->removeCallback(forwarder, &ok);
            printf("fanout_xproc_forwarded_ratio=%.3f\n", lumacast::bench::median(ratios));
        }
        long sent[16] = {2L * rounds * remoteCalls};  // received by listener 0 so far
        Series s;
        for (int r = 0; r < rounds; ++r) {
            s.bare.push_back(usPerCall(remoteCalls, [&] { proxy->onFrame(1, 0, block); }));
            sent[0] += remoteCalls;
            s.empty.push_back(usPerCall(localCalls, deliver));
            for (int k = 0; k < 3; ++k) {
                const int n = kCounts[k];
                for (int i = 0; i < n; ++i) {
                    if (ask(children[i], 'r') != "ok") {
                        fprintf(stderr, "listener %d could not register\n", i);
                        return 1;
                    }
                }
                s.perDelivery[k].push_back(usPerCall(remoteCalls, deliver));
                for (int i = 0; i < n; ++i) {
                    sent[i] += remoteCalls;
                    const long got = atol(ask(children[i], 'u').c_str());
                    if (got != sent[i]) {
                        fprintf(stderr, "listener %d of %d received %ld of %ld blocks\n", i, n, got,
                                sent[i]);
                        ++failures;
                    }
                    sent[i] = 0;
                }
                s.ratio[k].push_back((s.perDelivery[k].back() - s.empty.back()) / n /
                                     s.bare.back());
            }
        }
        report("xproc", s);
    }
    for (const Child& c : children) {
        const char q = 'q';
        if (write(c.in, &q, 1) != 1) kill(c.pid, SIGTERM);
        close(c.in);
        fclose(c.out);
        int status = 0;
        waitpid(c.pid, &status, 0);
    }
    service->destroy();
    return failures == 0 ? 0 : 1;
}
