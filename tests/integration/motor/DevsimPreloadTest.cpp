#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Namespace.h"
#include "tests/support/TestEnv.h"

namespace lumacast::test {
namespace {

using namespace std::chrono_literals;

std::string preload() {
    std::string p = DEVSIM_PRELOAD_PREFIX;
    if (!p.empty()) p += ":";
    return p + DEVSIM_LIBRARY;
}

// motor_probe running with devsim preloaded, as the daemon runs in the demo.
class Probe {
  public:
    Probe(const std::string& board, const std::vector<std::string>& env) {
        int in[2];
        int out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
        std::vector<std::string> vars = env;
        vars.push_back("LD_PRELOAD=" + preload());
        vars.push_back("LUMACAST_LOG_QUIET=1");
        for (const char* keep :
             {"PATH", "TMPDIR", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
            if (const char* v = getenv(keep)) vars.push_back(std::string(keep) + "=" + v);
        }
        mPid = fork();
        if (mPid == 0) {
            dup2(in[0], 0);
            dup2(out[1], 1);
            std::vector<char*> envp;
            for (auto& v : vars) envp.push_back(v.data());
            envp.push_back(nullptr);
            char* argv[] = {const_cast<char*>(MOTOR_PROBE), const_cast<char*>(board.c_str()),
                            nullptr};
            execve(MOTOR_PROBE, argv, envp.data());
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        mIn = in[1];
        mOut = out[0];
    }

    ~Probe() {
        if (mIn >= 0) close(mIn);
        if (mPid > 0) {
            int status = 0;
            waitpid(mPid, &status, 0);
        }
        if (mOut >= 0) close(mOut);
    }

    // Sends a command and returns its answer line ("<timeout>" after 20 s).
    std::string ask(const std::string& command) {
        const std::string line = command + "\n";
        if (write(mIn, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
            return "<write failed>";
        }
        std::string answer;
        for (;;) {
            pollfd p{mOut, POLLIN, 0};
            if (poll(&p, 1, 20000) <= 0) return "<timeout>";
            char c;
            if (read(mOut, &c, 1) != 1) return "<eof>";
            if (c == '\n') return answer;
            answer += c;
        }
    }

  private:
    pid_t mPid = -1;
    int mIn = -1;
    int mOut = -1;
};

// Runs devsimctl; returns its output and stores its exit status.
std::string devsimctl(const std::string& socket, const std::string& command, int* status) {
    const std::string line =
            std::string(DEVSIMCTL) + " --socket " + socket + " " + command + " 2>/dev/null";
    FILE* p = popen(line.c_str(), "re");
    std::string out;
    if (p == nullptr) return out;
    char buf[256];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), p)) > 0) out.append(buf, n);
    const int wait = pclose(p);
    *status = WIFEXITED(wait) ? WEXITSTATUS(wait) : -1;
    return out;
}

TEST(DevsimPreloadTest, EnvironmentSetsUpTheBoardAndLogsTransfers) {
    mount("tmpfs", "/sys/class", "tmpfs", 0, nullptr);
    mkdir("/sys/class/gpio", 0755);
    mkdir("/sys/class/gpio/gpio152", 0755);
    std::ofstream("/sys/class/gpio/gpio152/value") << "1";

    const std::string log = testTempDir() + "/transfers.log";
    Probe probe("MT9652-CEDAR",
                {"DEVSIM_INIT=board cedar; cedar 2 state 3; cedar 2 rise 42; cedar 2 version V-7",
                 "DEVSIM_LOG=" + log});
    EXPECT_EQ("2", probe.ask("status"));
    EXPECT_EQ("42", probe.ask("rise"));
    EXPECT_EQ("0", probe.ask("up"));
    EXPECT_EQ("V-7", probe.ask("version"));
    EXPECT_EQ("1", probe.ask("switch"));
    EXPECT_EQ("unset", probe.ask("env"));
    const std::string lines = readFile(log);
    EXPECT_NE(std::string::npos, lines.find("i2c-2 W 0x28: 23 02 | ok")) << lines;
    EXPECT_NE(std::string::npos, lines.find("i2c-2 W 0x28: 21 | R 0x28: 03 | ok")) << lines;
}

TEST(DevsimPreloadTest, ControlSocketSteersARunningProcess) {
    const std::string socket = testTempDir() + "/devsim.sock";
    Probe probe("RTD51M-FIR", {"DEVSIM_CONTROL=" + socket, "DEVSIM_INIT=time virtual"});
    EXPECT_EQ("1", probe.ask("switch"));  // the control thread is up once this answers
    int status = -1;
    EXPECT_EQ("ok\n", devsimctl(socket, "pin PIN_CAM_DET_SOC 0", &status));
    EXPECT_EQ(0, status);
    EXPECT_EQ("0", probe.ask("switch"));
    EXPECT_EQ("ok\n", devsimctl(socket, "cedar 1 state 4", &status));
    EXPECT_EQ("3", probe.ask("status"));
    EXPECT_EQ("ok\n", devsimctl(socket, "refuse bus=1 count=1", &status));
    EXPECT_EQ("-1", probe.ask("status"));
    EXPECT_EQ("3", probe.ask("status"));
    EXPECT_EQ("ok\n", devsimctl(socket, "bus 1 missing", &status));
    EXPECT_EQ("4096", probe.ask("down"));
    EXPECT_EQ("ok\n", devsimctl(socket, "bus 1 present", &status));
    const std::string fired = devsimctl(socket, "status", &status);
    EXPECT_NE(std::string::npos, fired.find("\n  refuse bus=1 kind=any errno=121: fired 1, 0 left"))
            << fired;
    EXPECT_NE(std::string::npos, fired.find("\n  bus 1 present: refused 1 opens and transfers"))
            << fired;

    // With virtual time a whole upgrade (6 s of mandated pauses) is instant.
    const std::string image = testTempDir() + "/probe-image.bin";
    std::ofstream(image) << std::string(300, 'x');
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ("0", probe.ask("upgrade " + image));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    EXPECT_EQ("ok\n6005000\n", devsimctl(socket, "clock", &status));

    const std::string last = devsimctl(socket, "transfers 1", &status);
    EXPECT_EQ(0u, last.find("ok\nt=6005000 i2c-1 W 0x28: e7 | R 0x28: 50 00 | ok")) << last;
    // Bad commands are refused with a reason and change nothing.
    const std::string bad = devsimctl(socket, "cedar 1 state 300", &status);
    EXPECT_EQ(0u, bad.find("error: bad number '300'")) << bad;
    EXPECT_EQ(1, status);
    EXPECT_EQ("error: unknown command 'frobnicate'\n", devsimctl(socket, "frobnicate", &status));
    EXPECT_EQ(1, status);
    EXPECT_EQ("3", probe.ask("status"));
    devsimctl(socket + ".nope", "clock", &status);
    EXPECT_EQ(2, status);
}

}  // namespace
}  // namespace lumacast::test
