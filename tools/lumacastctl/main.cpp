// lumacastctl: calls the lumacast daemon's binder services from a shell, listens to the
// camera's data, dumps the services' state and reads or writes the host property store.

#include <binder/IBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <cutils/properties.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <kora/lumacast/IKCameraMotor.h>
#include <kora/lumacast/ILumacast.h>
#include <lumacast/host/BinderDir.h>
#include <lumacast/host/PropertyStore.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tools/lumacastctl/Arguments.h"
#include "tools/lumacastctl/Listener.h"
#include "tools/lumacastctl/MethodTable.h"

using android::IBinder;
using android::sp;
using android::String16;
using android::binder::Status;
using kora::lumacast::IKCameraMotor;
using kora::lumacast::ILumacast;
using lumacast::ctl::Listener;
using lumacast::ctl::ListenOptions;
using lumacast::ctl::Method;
using lumacast::ctl::MethodTable;
using lumacast::ctl::Value;

namespace {

enum ExitCode {
    kExitOk = 0,
    kExitNotAsAsked = 1,
    kExitUsage = 2,
    kExitNoService = 3,
    kExitCallFailed = 4,
};

constexpr const char* kLumacastService = "lumacastservice";
constexpr const char* kMotorService = "cameramotorservice";

void usage(FILE* out) {
    fprintf(out,
            "usage: lumacastctl [--wait SECONDS] [--expect VALUE] COMMAND [ARG...]\n"
            "\n"
            "Commands:\n"
            "  lumacast METHOD [ARG...]  call a method of \"%s\"\n"
            "  motor METHOD [ARG...]     call a method of \"%s\"\n"
            "  methods                   list both services' methods with argument types\n"
            "  listen [OPTION...]        register a listener with \"%s\" and report\n"
            "                            the frames and AI results that arrive\n"
            "  dump [SERVICE [ARG...]]   a service's state (every service without SERVICE);\n"
            "                            'lumacast' and 'motor' name the daemon's two\n"
            "  list                      the registered services\n"
            "  getprop [NAME]            a property's value (every property without NAME)\n"
            "  setprop NAME VALUE        set a property\n"
            "  help                      this text\n"
            "\n"
            "Examples:\n"
            "  lumacastctl lumacast setZoomMode 1 2\n"
            "  lumacastctl motor set_client_type MT9652-CEDAR && lumacastctl motor motor_up\n"
            "  lumacastctl listen --seconds 5 --save /tmp/frames --require frame,ai\n"
            "  lumacastctl --expect true lumacast getZoomSwitch\n"
            "\n"
            "Arguments: bool is true, false, 1 or 0; int is a 32-bit decimal or 0x hex number;\n"
            "string is taken as given (quote JSON for the shell). A call prints its result on\n"
            "stdout: true or false, a number, or the text; methods without a result print\n"
            "nothing. Camera commands wait up to 3 s for the camera's answer.\n"
            "\n"
            "Motor:\n"
            "  set_client_type TYPE picks the board's driver once per daemon run: the first of\n"
            "  these found anywhere in TYPE decides (case matters), in this order:\n"
            "    MT9652-BIRCH, MT9652-ELM   motor on GPIO lines; MCU (version, upgrade) on\n"
            "                               /dev/i2c-2\n"
            "    MT9652-CEDAR               motor run by the MCU on /dev/i2c-2\n"
            "    RTD51M-FIR                 motor run by the MCU on /dev/i2c-1, camera switch\n"
            "                               on the SoC's GPIO pin\n"
            "  Any other text picks nothing; until a driver is picked every method gives a\n"
            "  fixed default (get_motor_status 4, motor_up 0, is_support_motor false).\n"
            "  Results of motor_up, motor_down and mcu_upgrade:\n"
            "    0         success\n"
            "    256       a GPIO value file could not be opened\n"
            "    257       a buffer could not be allocated\n"
            "    4096      a device could not be opened, or a step failed\n"
            "    negative  an I2C transfer the bus refused\n"
            "  mcu_upgrade can block for minutes; the daemon itself reads the image path.\n"
            "\n"
            "Options:\n"
            "  --wait SECONDS   how long to wait for a service to be registered (default 5)\n"
            "  --expect VALUE   a call must print VALUE, or the exit status is 1\n"
            "\n"
            "listen options:\n"
            "  --count N        stop after N callbacks\n"
            "  --seconds T      stop after T seconds (fractions allowed)\n"
            "  --save DIR       write every frame block (frame-NNNNNN.bin), protobuf block\n"
            "                   (proto-NNNNNN.bin) and AI JSON text (ai-NNNNNN.json) into DIR,\n"
            "                   which must be empty or new (so runs never mix)\n"
            "  --record FILE    keep every callback with its time in FILE, to be played\n"
            "                   back by camsim --replay (format: tools/camsim/README.md)\n"
            "  --quiet          no line per callback, only the summary\n"
            "  --interval T     print counts and rates every T seconds\n"
            "  --require KINDS  comma-separated frame,ai,proto: each must arrive at least once\n"
            "  Each callback prints one line, led by the seconds since listen began\n"
            "  (+1.234s frame #1 ...). Without --count or --seconds, listen runs until\n"
            "  interrupted (Ctrl-C). It always removes its listener and ends with a summary\n"
            "  and a line 'counts: frame=N ai=N proto=N'.\n"
            "\n"
            "Properties live in $LUMACAST_PROPERTY_DIR, services in $LUMACAST_BINDER_DIR;\n"
            "export the daemon's values (scripts/demo --keep prints them). Unset, they are\n"
            "/tmp/lumacast-properties-UID and /tmp/lumacast-binder-UID.\n"
            "\n"
            "Exit status:\n"
            "  0  done\n"
            "  1  done, but not as asked: --expect differs; listen stopped before --count,\n"
            "     missed a --require kind or could not save; setprop refused\n"
            "  2  usage: unknown command or method, wrong number or type of arguments\n"
            "  3  service not registered (list: none at all), or it died during the call\n"
            "  4  the call failed: a transaction error or an exception status\n",
            kLumacastService, kMotorService, kLumacastService);
}

int usageError(const std::string& why) {
    fprintf(stderr, "lumacastctl: %s (see lumacastctl --help)\n", why.c_str());
    return kExitUsage;
}

std::string serviceName(const std::string& word) {
    if (word == "lumacast") return kLumacastService;
    if (word == "motor") return kMotorService;
    return word;
}

// Where services were looked for: a shell without the daemon's LUMACAST_BINDER_DIR is the
// usual reason for finding none.
std::string registryText() {
    const char* env = getenv("LUMACAST_BINDER_DIR");
    const std::string dir = lumacast::host::binderDir();
    if (env != nullptr && env[0] != '\0') return dir + " (LUMACAST_BINDER_DIR)";
    return dir + " (LUMACAST_BINDER_DIR is not set; export the daemon's value)";
}

sp<IBinder> findService(const std::string& name, double waitSeconds) {
    const sp<android::IServiceManager> sm = android::defaultServiceManager();
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                  std::chrono::duration<double>(waitSeconds));
    for (;;) {
        sp<IBinder> binder = sm->checkService(String16(name.c_str()));
        if (binder != nullptr) return binder;
        if (std::chrono::steady_clock::now() >= deadline) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    fprintf(stderr, "lumacastctl: service %s is not registered in %s\n", name.c_str(),
            registryText().c_str());
    return nullptr;
}

// A status that says the service went away counts as "no service".
int failedCall(const std::string& what, const Status& status) {
    fprintf(stderr, "lumacastctl: %s failed: %s\n", what.c_str(), status.toString8().c_str());
    if (status.exceptionCode() == Status::EX_TRANSACTION_FAILED &&
        status.transactionError() == android::DEAD_OBJECT) {
        return kExitNoService;
    }
    return kExitCallFailed;
}

template <typename Interface>
int runCall(const std::vector<Method<Interface>>& table, const std::string& service,
            const std::vector<std::string>& words, double waitSeconds, const char* expect) {
    if (words.empty()) {
        fprintf(stderr, "lumacastctl: name a method of %s:\n%s", service.c_str(),
                MethodTable::describe(table).c_str());
        return kExitUsage;
    }
    const std::vector<std::string> args(words.begin() + 1, words.end());
    // Check the words before looking for the service, so a typo is a usage error.
    const Method<Interface>* method = nullptr;
    std::vector<Value> values;
    std::string error;
    if (!MethodTable::parse(table, words[0], args, &method, &values, &error)) {
        return usageError(error + " (" + service + ")");
    }
    if (expect != nullptr && method->result == lumacast::ctl::ValueType::kNone) {
        return usageError(words[0] + " has no result to --expect");
    }
    const sp<IBinder> binder = findService(service, waitSeconds);
    if (binder == nullptr) return kExitNoService;
    const sp<Interface> proxy = android::interface_cast<Interface>(binder);
    if (proxy == nullptr) {
        fprintf(stderr, "lumacastctl: %s does not implement its interface\n", service.c_str());
        return kExitCallFailed;
    }
    Value result;
    const Status status = method->invoke(*proxy, values, &result);
    if (!status.isOk()) return failedCall(words[0], status);
    const std::string text = result.toString();
    if (result.type != lumacast::ctl::ValueType::kNone) printf("%s\n", text.c_str());
    if (expect != nullptr && text != expect) {
        fprintf(stderr, "lumacastctl: %s returned %s, expected %s\n", words[0].c_str(),
                text.c_str(), expect);
        return kExitNotAsAsked;
    }
    return kExitOk;
}

// Wakes the listen loop from a binder thread: every thread blocks these signals and the
// main thread collects them with sigtimedwait.
void wakeMain() { kill(getpid(), SIGUSR1); }

class ServiceDeath : public IBinder::DeathRecipient {
  public:
    void binderDied(const android::wp<IBinder>&) override {
        died = true;
        wakeMain();
    }
    std::atomic<bool> died{false};
};

int runListen(const std::vector<std::string>& words, double waitSeconds) {
    ListenOptions options;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& w = words[i];
        auto value = [&]() -> const std::string* {
            return i + 1 < words.size() ? &words[++i] : nullptr;
        };
        const std::string* v = nullptr;
        if (w == "--quiet") {
            options.quiet = true;
        } else if (w == "--count") {
            if ((v = value()) == nullptr || !lumacast::ctl::parseCount(*v, &options.count) ||
                options.count == 0) {
                return usageError("--count needs a number of callbacks above 0");
            }
        } else if (w == "--seconds") {
            if ((v = value()) == nullptr || !lumacast::ctl::parseSeconds(*v, &options.seconds) ||
                options.seconds <= 0) {
                return usageError("--seconds needs a time above 0");
            }
        } else if (w == "--interval") {
            if ((v = value()) == nullptr || !lumacast::ctl::parseSeconds(*v, &options.interval) ||
                options.interval < 0.05) {
                return usageError("--interval needs a time of at least 0.05 s");
            }
        } else if (w == "--save") {
            if ((v = value()) == nullptr || v->empty()) return usageError("--save needs a folder");
            options.saveDir = *v;
        } else if (w == "--record") {
            if ((v = value()) == nullptr || v->empty()) return usageError("--record needs a file");
            options.recordPath = *v;
        } else if (w == "--require") {
            if ((v = value()) == nullptr) return usageError("--require needs frame, ai or proto");
            size_t start = 0;
            while (start <= v->size()) {
                const size_t comma = std::min(v->find(',', start), v->size());
                const std::string kind = v->substr(start, comma - start);
                if (kind == "frame") {
                    options.requireFrame = true;
                } else if (kind == "ai") {
                    options.requireAi = true;
                } else if (kind == "proto") {
                    options.requireProto = true;
                } else {
                    return usageError("--require takes frame, ai and proto, not '" + kind + "'");
                }
                start = comma + 1;
            }
        } else {
            return usageError("unknown listen option '" + w + "'");
        }
    }
    std::string why;
    if (!options.saveDir.empty() && !Listener::prepareSaveDir(options.saveDir, &why)) {
        fprintf(stderr, "lumacastctl: cannot save into %s: %s\n", options.saveDir.c_str(),
                why.c_str());
        return kExitNotAsAsked;
    }

    // Before any thread exists, so that every binder thread inherits the mask.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    const sp<IBinder> binder = findService(kLumacastService, waitSeconds);
    if (binder == nullptr) return kExitNoService;
    const sp<ILumacast> service = android::interface_cast<ILumacast>(binder);
    if (service == nullptr) return kExitCallFailed;
    android::ProcessState::self()->startThreadPool();

    const sp<ServiceDeath> death = new ServiceDeath();
    binder->linkToDeath(death);
    const sp<Listener> listener = new Listener(options, stdout, wakeMain);
    if (!options.recordPath.empty() && !listener->openRecording(&why)) {
        fprintf(stderr, "lumacastctl: cannot record into %s\n", why.c_str());
        return kExitNotAsAsked;
    }
    bool registered = false;
    const Status status = service->setCallback(listener, &registered);
    if (!status.isOk()) return failedCall("setCallback", status);
    if (!registered) {
        fprintf(stderr, "lumacastctl: setCallback refused the listener\n");
        return kExitCallFailed;
    }
    printf("listening to %s\n", kLumacastService);

    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    auto toDuration = [](double s) {
        return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(s));
    };
    const auto deadline =
            options.seconds > 0 ? start + toDuration(options.seconds) : Clock::time_point::max();
    auto nextInterval =
            options.interval > 0 ? start + toDuration(options.interval) : Clock::time_point::max();
    bool interrupted = false;
    for (;;) {
        const auto now = Clock::now();
        if (now >= deadline) break;
        if (now >= nextInterval) {
            listener->printInterval();
            nextInterval += toDuration(options.interval);
            continue;
        }
        auto wait = std::min({deadline, nextInterval, now + std::chrono::seconds(1)}) - now;
        const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(wait).count();
        struct timespec ts = {static_cast<time_t>(ns / 1000000000),
                              static_cast<long>(ns % 1000000000)};
        const int sig = sigtimedwait(&signals, nullptr, &ts);
        if (sig == SIGINT || sig == SIGTERM) {
            interrupted = true;
            break;
        }
        if (death->died) break;
        if (options.count != 0 && listener->counts().total() >= options.count) break;
    }

    int exitCode = kExitOk;
    if (death->died) {
        fprintf(stderr, "lumacastctl: %s died\n", kLumacastService);
        exitCode = kExitNoService;
    } else {
        bool removed = false;
        const Status st = service->removeCallback(listener, &removed);
        if (!st.isOk()) {
            exitCode = failedCall("removeCallback", st);
        } else if (!removed) {
            fprintf(stderr, "lumacastctl: removeCallback refused the listener\n");
            exitCode = kExitCallFailed;
        }
    }
    binder->unlinkToDeath(death);
    listener->printSummary();
    if (interrupted) fprintf(stderr, "lumacastctl: interrupted\n");
    const std::string missing = listener->shortfall();
    if (!missing.empty()) fprintf(stderr, "lumacastctl: %s\n", missing.c_str());
    if (exitCode == kExitOk && !missing.empty()) exitCode = kExitNotAsAsked;
    return exitCode;
}

// Copies what the service writes into the pipe to stdout, while the dump transaction runs
// (a large dump would fill the pipe before the transaction could return).
int dumpOne(const std::string& name, const sp<IBinder>& binder,
            const android::Vector<String16>& args) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        fprintf(stderr, "lumacastctl: pipe: %s\n", strerror(errno));
        return kExitCallFailed;
    }
    std::atomic<bool> transactionDone{false};
    std::thread reader([&] {
        char buf[4096];
        int quietPolls = 0;
        for (;;) {
            struct pollfd p = {fds[0], POLLIN, 0};
            const int r = poll(&p, 1, 100);
            if (r < 0 && errno == EINTR) continue;
            if (r == 0) {
                // A service that keeps a copy of the descriptor must not hang us.
                if (transactionDone && ++quietPolls >= 10) break;
                continue;
            }
            const ssize_t n = read(fds[0], buf, sizeof(buf));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            quietPolls = 0;
            fwrite(buf, 1, static_cast<size_t>(n), stdout);
        }
    });
    const android::status_t err = binder->dump(fds[1], args);
    close(fds[1]);
    transactionDone = true;
    reader.join();
    close(fds[0]);
    fflush(stdout);
    if (err != android::OK) {
        fprintf(stderr, "lumacastctl: dump of %s failed: %s\n", name.c_str(),
                android::statusToString(err).c_str());
        return err == android::DEAD_OBJECT ? kExitNoService : kExitCallFailed;
    }
    return kExitOk;
}

int runDump(const std::vector<std::string>& words, double waitSeconds) {
    android::Vector<String16> args;
    if (!words.empty()) {
        for (size_t i = 1; i < words.size(); ++i) args.push_back(String16(words[i].c_str()));
        const std::string name = serviceName(words[0]);
        const sp<IBinder> binder = findService(name, waitSeconds);
        if (binder == nullptr) return kExitNoService;
        return dumpOne(name, binder, args);
    }
    const sp<android::IServiceManager> sm = android::defaultServiceManager();
    const android::Vector<String16> names = sm->listServices();
    int result = kExitOk;
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string name = android::String8(names[i]).c_str();
        const sp<IBinder> binder = sm->checkService(names[i]);
        if (binder == nullptr) continue;  // registered by a process that is gone
        printf("-------------------------------------------------------------------------------\n"
               "DUMP OF SERVICE %s:\n",
               name.c_str());
        fflush(stdout);
        const int r = dumpOne(name, binder, args);
        if (result == kExitOk) result = r;
    }
    return result;
}

int runList() {
    const sp<android::IServiceManager> sm = android::defaultServiceManager();
    const android::Vector<String16> names = sm->listServices();
    std::vector<std::string> lines;
    for (size_t i = 0; i < names.size(); ++i) {
        const sp<IBinder> binder = sm->checkService(names[i]);
        if (binder == nullptr) continue;
        const std::string descriptor = android::String8(binder->getInterfaceDescriptor()).c_str();
        lines.push_back(std::string(android::String8(names[i]).c_str()) + ": [" + descriptor + "]");
    }
    if (lines.empty()) {
        fprintf(stderr, "lumacastctl: no services are registered in %s\n", registryText().c_str());
        return kExitNoService;
    }
    printf("Found %zu services:\n", lines.size());
    for (size_t i = 0; i < lines.size(); ++i) printf("%zu\t%s\n", i, lines[i].c_str());
    return kExitOk;
}

int runGetprop(const std::vector<std::string>& words) {
    if (words.size() > 1) return usageError("getprop takes at most one name");
    if (words.size() == 1) {
        char value[PROPERTY_VALUE_MAX];
        property_get(words[0].c_str(), value, "");
        printf("%s\n", value);
        return kExitOk;
    }
    std::vector<std::string> keys;
    const std::string dir = lumacast::host::propertyDir();
    if (DIR* d = opendir(dir.c_str())) {
        while (struct dirent* e = readdir(d)) {
            if (e->d_name[0] != '.') keys.push_back(e->d_name);  // dot files are writes in flight
        }
        closedir(d);
    }
    std::sort(keys.begin(), keys.end());
    for (const std::string& key : keys) {
        char value[PROPERTY_VALUE_MAX];
        property_get(key.c_str(), value, "");
        printf("[%s]: [%s]\n", key.c_str(), value);
    }
    return kExitOk;
}

int runSetprop(const std::vector<std::string>& words) {
    if (words.size() != 2) return usageError("setprop takes a name and a value");
    if (words[1].size() >= PROPERTY_VALUE_MAX) {
        fprintf(stderr, "lumacastctl: value too long (at most %d bytes)\n", PROPERTY_VALUE_MAX - 1);
        return kExitNotAsAsked;
    }
    if (property_set(words[0].c_str(), words[1].c_str()) != 0) {
        fprintf(stderr, "lumacastctl: could not set %s\n", words[0].c_str());
        return kExitNotAsAsked;
    }
    return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
    // Output goes to pipes in scripts and tests: one line at a time, as it happens.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    signal(SIGPIPE, SIG_IGN);

    double waitSeconds = 5;
    const char* expect = nullptr;
    int i = 1;
    for (; i < argc && argv[i][0] == '-'; ++i) {
        const std::string opt = argv[i];
        if (opt == "-h" || opt == "--help") {
            usage(stdout);
            return kExitOk;
        } else if (opt == "--wait") {
            if (i + 1 >= argc || !lumacast::ctl::parseSeconds(argv[i + 1], &waitSeconds)) {
                return usageError("--wait needs a number of seconds");
            }
            ++i;
        } else if (opt == "--expect") {
            if (i + 1 >= argc) return usageError("--expect needs a value");
            expect = argv[++i];
        } else {
            return usageError("unknown option '" + opt + "'");
        }
    }
    if (i >= argc) {
        usage(stderr);
        return kExitUsage;
    }
    const std::string command = argv[i];
    const std::vector<std::string> words(argv + i + 1, argv + argc);
    if (expect != nullptr && command != "lumacast" && command != "motor" &&
        command != kLumacastService && command != kMotorService) {
        return usageError("--expect applies to method calls only");
    }

    if (command == "help") {
        usage(stdout);
        return kExitOk;
    }
    if (command == "lumacast" || command == kLumacastService) {
        if (!words.empty() && words[0] == "setCallback") {
            // The listener must live in this process for as long as it listens.
            return runListen(std::vector<std::string>(words.begin() + 1, words.end()), waitSeconds);
        }
        if (!words.empty() && words[0] == "removeCallback") {
            return usageError(
                    "removeCallback takes the caller's own listener; 'listen' removes "
                    "its listener when it stops");
        }
        return runCall(MethodTable::lumacast(), kLumacastService, words, waitSeconds, expect);
    }
    if (command == "motor" || command == kMotorService) {
        return runCall(MethodTable::motor(), kMotorService, words, waitSeconds, expect);
    }
    if (command == "methods") {
        printf("lumacast (%s):\n  setCallback  (see listen)\n  removeCallback  (see listen)\n",
               kLumacastService);
        std::string text = MethodTable::describe(MethodTable::lumacast());
        for (size_t p = 0; p < text.size();) {
            const size_t nl = text.find('\n', p);
            printf("  %s\n", text.substr(p, nl - p).c_str());
            p = nl + 1;
        }
        printf("motor (%s):\n", kMotorService);
        text = MethodTable::describe(MethodTable::motor());
        for (size_t p = 0; p < text.size();) {
            const size_t nl = text.find('\n', p);
            printf("  %s\n", text.substr(p, nl - p).c_str());
            p = nl + 1;
        }
        return kExitOk;
    }
    if (command == "listen") return runListen(words, waitSeconds);
    if (command == "dump") return runDump(words, waitSeconds);
    if (command == "list") return words.empty() ? runList() : usageError("list takes no arguments");
    if (command == "getprop") return runGetprop(words);
    if (command == "setprop") return runSetprop(words);
    return usageError("unknown command '" + command + "'");
}
