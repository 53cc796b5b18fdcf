// lumacast-demo: the daemon's main job on a simulated TV, step by step. Run it through
// scripts/demo, which builds everything and starts this inside `unshare -rmn --fork`.

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/FakeDevice.h"
#include "tests/support/Namespace.h"
#include "tests/support/TestEnv.h"
#include "tools/demo/FakeTv.h"

using lumacast::demo::FakeTv;

namespace {

volatile sig_atomic_t gStop = 0;
void onSignal(int) { gStop = 1; }

using lumacast::test::readFile;

std::string trimmed(std::string s) {
    while (!s.empty() && (s.back() == '\n' || s.back() == ' ')) s.pop_back();
    return s;
}

void indent(const std::string& text, size_t maxLines = 40) {
    size_t start = 0;
    size_t lines = 0;
    while (start < text.size() && lines < maxLines) {
        size_t nl = text.find('\n', start);
        if (nl == std::string::npos) nl = text.size();
        printf("      %s\n", text.substr(start, nl - start).c_str());
        start = nl + 1;
        ++lines;
    }
    if (start < text.size()) printf("      ...\n");
}

class Demo {
  public:
    explicit Demo(FakeTv* tv) : mTv(tv) {}

    // Runs one step; false once any step has failed (later steps are skipped).
    bool step(const std::string& title, const std::function<bool(std::string*)>& body) {
        if (mFailed || gStop) return false;
        ++mSteps;
        printf("\n==> %d. %s\n", mSteps, title.c_str());
        fflush(stdout);
        const auto start = std::chrono::steady_clock::now();
        std::string why;
        const bool ok = body(&why);
        const double secs =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (ok) {
            ++mPassed;
            printf("    [ ok ] (%.1f s)\n", secs);
        } else {
            mFailed = true;
            printf("    [FAIL] %s\n", why.c_str());
        }
        fflush(stdout);
        return ok;
    }

    // Runs lumacastctl as a user would type it, shows what it printed, and checks the
    // result when `expect` is given.
    bool ctl(const std::vector<std::string>& args, std::string* why, const char* expect = nullptr,
             std::string* out = nullptr) {
        std::string line = "lumacastctl";
        for (const std::string& a : args) {
            line += " " + (a.find_first_of(" \"{") == std::string::npos ? a : "'" + a + "'");
        }
        printf("    $ %s\n", line.c_str());
        const FakeTv::CtlResult r = mTv->ctl(args);
        indent(trimmed(r.out));
        if (out != nullptr) *out = r.out;
        if (r.exitCode != 0) {
            *why = line + " exited " + std::to_string(r.exitCode) + ": " + trimmed(r.err);
            return false;
        }
        if (expect != nullptr && trimmed(r.out) != expect) {
            *why = line + " printed '" + trimmed(r.out) + "', expected '" + expect + "'";
            return false;
        }
        return true;
    }

    void say(const std::string& text) { printf("    %s\n", text.c_str()); }

    bool allPassed() const { return !mFailed && mSteps > 0; }
    int steps() const { return mSteps; }
    int passed() const { return mPassed; }

  private:
    FakeTv* mTv;
    int mSteps = 0;
    int mPassed = 0;
    bool mFailed = false;
};

// Sends one line to a control socket (camsim's or devsim's) and prints the reply.
int sendControl(const char* path, const std::string& line) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof(addr.sun_path)) {
        fprintf(stderr, "lumacast-demo: socket path too long\n");
        return 2;
    }
    strcpy(addr.sun_path, path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        fprintf(stderr, "lumacast-demo: cannot reach %s: %s\n", path, strerror(errno));
        if (fd >= 0) close(fd);
        return 2;
    }
    const std::string msg = line + "\n";
    if (send(fd, msg.data(), msg.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(msg.size())) {
        close(fd);
        return 2;
    }
    // camsim keeps the connection open: stop once the reply has gone quiet.
    char buf[4096];
    std::string reply;
    for (;;) {
        struct pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, reply.empty() ? 5000 : 200) <= 0) break;
        const ssize_t n = read(fd, buf, sizeof(buf));
        if (n <= 0) break;
        reply.append(buf, static_cast<size_t>(n));
    }
    close(fd);
    fputs(reply.c_str(), stdout);
    return reply.compare(0, 2, "ok") == 0 ? 0 : 1;
}

void usage(FILE* out) {
    fprintf(out,
            "usage: lumacast-demo [--keep]\n"
            "       lumacast-demo --send SOCKET LINE\n"
            "  Runs lumacastd on a simulated TV and walks through its main job, inside a user,\n"
            "  mount and network namespace of its own (as unshare -rmn makes them).\n"
            "  --keep   leave the TV running afterwards and take commands (plug, unplug,\n"
            "           status, help, quit); ends with status 1 if lumacastd dies meanwhile\n"
            "  --send   one line to a camsim or devsim control socket; prints the reply\n"
            "Exit status: 0 when every step did what it should, 1 otherwise, 2 on usage.\n");
}

}  // namespace

int main(int argc, char** argv) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    bool keep = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--keep") {
            keep = true;
        } else if (a == "--send" && i + 2 < argc) {
            std::string line;
            for (int j = i + 2; j < argc; ++j)
                line += (j > i + 2 ? " " : "") + std::string(argv[j]);
            return sendControl(argv[i + 1], line);
        } else if (a == "-h" || a == "--help") {
            usage(stdout);
            return 0;
        } else {
            usage(stderr);
            return 2;
        }
    }
    // Everything below changes interfaces, routes and mounts: only ever inside a user, mount
    // and network namespace of this program's own, as `unshare -rmn` would make it.
    if (!lumacast::test::inTestNamespace()) {
        std::string why;
        if (lumacast::test::enterUserMountNetNamespace(&why) !=
            lumacast::test::NamespaceResult::kEntered) {
            fprintf(stderr, "lumacast-demo: cannot make private namespaces (%s)\n", why.c_str());
            return 1;
        }
    }
    signal(SIGPIPE, SIG_IGN);
    // This program's own binder and platform chatter stays out of the account; lumacastd's
    // log goes to its file.
    setenv("LUMACAST_LOG_QUIET", "1", 1);
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);

    char dirTemplate[] = "/tmp/lumacast-demo-XXXXXX";
    if (mkdtemp(dirTemplate) == nullptr) {
        perror("lumacast-demo: mkdtemp");
        return 1;
    }
    const std::string dir = dirTemplate;
    lumacast::test::setInterfaceUp("lo");
    FakeTv tv(dir);
    Demo demo(&tv);
    const std::string saveDir = dir + "/received";
    const std::string image = dir + "/mcu-firmware.bin";

    printf("lumacast demo: lumacastd on a simulated TV (files, logs and sockets in %s)\n",
           dir.c_str());

    demo.step(
            "Build the fake TV: /sys/class and /dev on tmpfs, motor GPIO files",
            [&](std::string* why) {
                if (!tv.setUp(why)) return false;
                for (int gpio : {146, 147, 150, 151, 152}) tv.device().writeGpio(gpio, "1");
                demo.say("the camera's USB network will be a veth pair: usb0 here, its peer in a");
                demo.say("network namespace of the camera's own with 192.168.111.10");
                return true;
            });

    demo.step("Start lumacastd (devsim preloaded as the Cedar motor board)", [&](std::string* why) {
        if (!tv.startDaemon("board cedar", why)) return false;
        demo.say("both services are registered:");
        return demo.ctl({"list"}, why);
    });

    demo.step("No camera yet: camera commands fail at once", [&](std::string* why) {
        demo.say("sys.kora.usb.status = '" + tv.property("sys.kora.usb.status") + "'");
        return demo.ctl({"lumacast", "getZoomSwitch"}, why, "false");
    });

    demo.step("Plug the AI camera in (USB 2bc5:0604, video0 + usb0)", [&](std::string* why) {
        if (!tv.plug(lumacast::test::kAcceptedCamera, "default", why)) return false;
        if (!tv.waitForProperty("sys.kora.usb.status", "1", 15000)) {
            *why = "lumacastd did not report the camera (sys.kora.usb.status is '" +
                   tv.property("sys.kora.usb.status") + "')";
            return false;
        }
        demo.say("lumacastd recognised both functions and set up the camera network:");
        indent(trimmed(lumacast::test::commandOutput("ip -4 -br addr show dev usb0")));
        indent(trimmed(lumacast::test::commandOutput("ip rule show to 192.168.111.0/24")));
        indent(trimmed(lumacast::test::commandOutput("ip route show table 100")));
        demo.say("sys.kora.usb.status = " + tv.property("sys.kora.usb.status"));
        return true;
    });

    std::unique_ptr<lumacast::demo::Process> listener;
    demo.step("Register a listener and talk to the camera", [&](std::string* why) {
        demo.say("$ lumacastctl listen --seconds 4 --interval 1 --require frame,ai,proto --save " +
                 saveDir + "   (in the background)");
        listener = tv.startCtl({"listen", "--seconds", "4", "--interval", "1", "--require",
                                "frame,ai,proto", "--save", saveDir},
                               dir + "/listen.out", why);
        if (listener == nullptr) return false;
        // The listener is registered once it says so.
        for (int i = 0;
             i < 500 && readFile(dir + "/listen.out").find("listening") == std::string::npos; ++i) {
            usleep(10 * 1000);
        }
        demo.say("kora.camera.subscribe_status = " + tv.property("kora.camera.subscribe_status"));
        // The first command connects the link to the camera; data flows from then on.
        return demo.ctl({"lumacast", "setAiSubscribeType", "1"}, why, "true") &&
               demo.ctl({"lumacast", "setZoomMode", "1", "2"}, why, "true") &&
               demo.ctl({"lumacast", "getZoomMode"}, why) &&
               demo.ctl({"lumacast", "getAiAlgoList"}, why) &&
               demo.ctl({"lumacast", "grabFrame", "0", "1920x1080"}, why, "true");
    });

    demo.step("What the camera received and what the listener got", [&](std::string* why) {
        demo.say("camsim saw these commands (254 is the heartbeat of this model):");
        const std::string commands = tv.camsim("commands");
        indent(commands.substr(commands.find('\n') + 1));
        if (listener == nullptr || listener->wait(15000) == -1) {
            *why = "the listener did not finish";
            return false;
        }
        const std::string out = readFile(dir + "/listen.out");
        demo.say("the listener printed (first lines and its summary):");
        std::string head;
        std::istringstream lines(out);
        std::string line;
        int shown = 0;
        while (std::getline(lines, line)) {
            const bool summary =
                    line.compare(0, 8, "listened") == 0 || line.compare(0, 2, "  ") == 0 ||
                    line.compare(0, 6, "counts") == 0 || line.compare(0, 5, "rates") == 0;
            if (summary || shown++ < 6) head += line + "\n";
        }
        indent(trimmed(head), 30);
        const int status = listener->status();
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            *why = "the listener " + lumacast::demo::Process::describe(status) + ": " +
                   trimmed(readFile(dir + "/listen.out.err"));
            return false;
        }
        demo.say("saved into " + saveDir + ": " +
                 trimmed(lumacast::test::commandOutput("ls " + saveDir + " | wc -l")) + " files");
        return true;
    });

    demo.step("Raise and lower the pop-up camera", [&](std::string* why) {
        if (!demo.ctl({"motor", "set_client_type", "MT9652-CEDAR"}, why) ||
            !demo.ctl({"motor", "is_support_motor"}, why, "true") ||
            !demo.ctl({"motor", "motor_up"}, why, "0") ||
            !demo.ctl({"motor", "motor_down"}, why, "0")) {
            return false;
        }
        demo.say("the motor MCU on i2c-2 received (register 0x23: 2 raise, 1 lower):");
        indent(tv.devsim("transfers 2").substr(3));
        return demo.ctl({"motor", "get_motor_status"}, why) &&
               demo.ctl({"motor", "get_mcu_version"}, why);
    });

    demo.step("Flash a firmware image into the motor MCU (takes about 7 s)", [&](std::string* why) {
        std::string bytes(1024, '\0');
        for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 31 + 7);
        std::ofstream(image, std::ios::binary) << bytes;
        demo.say("image " + image + ": 1024 bytes, 4 packages of 256");
        if (!demo.ctl({"motor", "mcu_upgrade", image}, why, "0")) return false;
        const std::string stats = tv.devsim("stats");
        demo.say("devsim's MCU: " +
                 stats.substr(stats.find("cedar on i2c-2"))
                         .substr(0, stats.find('\n', stats.find("cedar on i2c-2")) -
                                            stats.find("cedar on i2c-2")));
        if (stats.find("packages 4, finished") == std::string::npos) {
            *why = "the MCU did not receive the whole image: " + stats;
            return false;
        }
        return true;
    });

    demo.step("The services' state (lumacastctl dump)", [&](std::string* why) {
        std::string lumacast;
        std::string motor;
        if (!demo.ctl({"dump", "lumacast"}, why, nullptr, &lumacast) ||
            !demo.ctl({"dump", "motor"}, why, nullptr, &motor)) {
            return false;
        }
        if (lumacast.find("camera present: yes") == std::string::npos ||
            motor.find("driver: selected") == std::string::npos) {
            *why = "the services do not report the camera and the motor driver";
            return false;
        }
        return true;
    });

    if (keep && !demo.allPassed()) keep = false;
    bool daemonDied = false;
    if (keep) {
        const std::string ctlPath = FakeTv::lumacastctlPath();
        auto howToReach = [&] {
            printf("  In another terminal:\n"
                   "    export LUMACAST_BINDER_DIR=%s/binder LUMACAST_PROPERTY_DIR=%s/properties\n"
                   "    export DEVSIM_SOCKET=%s/devsim.sock\n"
                   "    %s list\n"
                   "    %s listen --seconds 5\n"
                   "    %s lumacast setZoomMode 1 2\n"
                   "    %s motor motor_up\n"
                   "    %s dump lumacast\n"
                   "  The TV's own network and files (ip addr, ip rule, /sys/class) from inside:\n"
                   "    nsenter --preserve-credentials -U -m -n -t %d\n"
                   "  The camera simulator and the motor board (faults: devsimctl --help):\n"
                   "    %s --send %s/camsim.sock help\n"
                   "    %s status\n"
                   "  Logs: %s/lumacastd.log, %s/camsim.log, %s/devsim-transfers.log\n",
                   dir.c_str(), dir.c_str(), dir.c_str(), ctlPath.c_str(), ctlPath.c_str(),
                   ctlPath.c_str(), ctlPath.c_str(), ctlPath.c_str(), static_cast<int>(getpid()),
                   argv[0], dir.c_str(), FakeTv::devsimctlPath(), dir.c_str(), dir.c_str(),
                   dir.c_str());
        };
        const char* kPromptHelp = "commands: plug, unplug, status, help, quit (or Ctrl-C)";
        printf("\n==> The fake TV keeps running.\n");
        howToReach();
        printf("Here: %s\n", kPromptHelp);
        // Unbuffered, so that poll sees every line that fgets has not taken yet.
        setvbuf(stdin, nullptr, _IONBF, 0);
        bool plugged = true;
        bool prompt = true;
        while (!gStop) {
            if (prompt) {
                printf("demo> ");
                fflush(stdout);
                prompt = false;
            }
            // Waits for a line, but looks at the daemon every second: a TV whose daemon
            // died is no TV to explore.
            struct pollfd in = {STDIN_FILENO, POLLIN, 0};
            const int ready = poll(&in, 1, 1000);
            if (!tv.daemonRunning()) {
                printf("\nlumacastd died; ending the demo\n");
                daemonDied = true;
                break;
            }
            if (ready <= 0) continue;
            char line[256];
            if (fgets(line, sizeof(line), stdin) == nullptr) break;
            prompt = true;
            const std::string cmd = trimmed(line);
            std::string why;
            if (cmd == "quit" || cmd == "exit") break;
            if ((cmd == "plug" && plugged) || (cmd == "unplug" && !plugged)) {
                printf("the camera is already %s\n", plugged ? "plugged in" : "unplugged");
            } else if (cmd == "plug") {
                plugged = tv.plug(lumacast::test::kAcceptedCamera, "default", &why);
                printf("%s\n", plugged && tv.waitForProperty("sys.kora.usb.status", "1", 15000)
                                       ? "camera plugged in"
                                       : ("plug failed: " + why).c_str());
            } else if (cmd == "unplug") {
                plugged = !tv.unplug(&why);
                printf("%s\n", plugged ? ("unplug failed: " + why).c_str() : "camera unplugged");
            } else if (cmd == "status") {
                printf("lumacastd: running, pid %d\ncamera: %s\n", static_cast<int>(tv.daemonPid()),
                       plugged ? "plugged in" : "unplugged");
                const FakeTv::CtlResult dump = tv.ctl({"dump"});
                indent(trimmed(dump.out), 60);
            } else if (cmd == "help") {
                howToReach();
                printf("Here: %s\n", kPromptHelp);
            } else if (!cmd.empty()) {
                printf("unknown command '%s'; %s\n", cmd.c_str(), kPromptHelp);
            }
        }
        printf("\n");
    } else {
        demo.step("Unplug the camera", [&](std::string* why) {
            if (!tv.unplug(why)) return false;
            if (!tv.waitForProperty("sys.kora.usb.status", "0", 15000)) {
                *why = "lumacastd did not report the removal";
                return false;
            }
            demo.say("sys.kora.usb.status = 0; usb0 is gone and the link waits for the camera");
            return tv.waitForLog("SocketClient camera do not exit, wait", 10000) &&
                   demo.ctl({"lumacast", "getZoomSwitch"}, why, "false");
        });
    }

    std::string why;
    const bool daemonAlive = tv.daemonRunning(&why);
    demo.step("Tear everything down", [&](std::string* stepWhy) {
        if (!daemonAlive) {
            *stepWhy = why;
            return false;
        }
        tv.tearDown();
        return true;
    });
    // Kept, success or not: the logs are what a reader of this run asks for next.
    const std::string kept = "files and logs kept in " + dir +
                             " (lumacastd.log, camsim.log, devsim-transfers.log, listen.out)";
    if (!demo.allPassed() || daemonDied) {
        // A daemon that died has had its log's end shown already.
        if (daemonAlive) {
            printf("\nlumacastd's log ends:\n");
            const std::string log = tv.daemonLog();
            indent(log.substr(log.size() > 3000 ? log.size() - 3000 : 0), 60);
        }
        tv.tearDown();
        if (daemonDied) {
            printf("\ndemo FAILED: lumacastd died while the TV was kept running\n");
        } else {
            printf("\ndemo FAILED after %d of %d steps\n", demo.passed(), demo.steps());
        }
        printf("%s\n", kept.c_str());
        return 1;
    }
    printf("\ndemo passed: all %d steps did what they should\n%s\n", demo.steps(), kept.c_str());
    return 0;
}
