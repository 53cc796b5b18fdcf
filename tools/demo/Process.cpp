#include "tools/demo/Process.h"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <thread>

extern char** environ;

namespace lumacast::demo {

Process::~Process() {
    if (mPid > 0) stop(SIGKILL, 5000);
}

bool Process::start(const Options& options, std::string* why) {
    if (mPid > 0 || options.argv.empty()) {
        *why = options.argv.empty() ? "nothing to run" : "already running";
        return false;
    }
    // Everything the child needs is built before fork: the parent may have threads, so the
    // child may only make async-signal-safe calls.
    std::vector<std::string> env;
    for (char** e = environ; *e != nullptr; ++e) {
        const std::string entry = *e;
        const std::string name = entry.substr(0, entry.find('='));
        bool replaced = false;
        for (const std::string& add : options.env) {
            if (add.compare(0, name.size() + 1, name + "=") == 0) replaced = true;
        }
        if (!replaced) env.push_back(entry);
    }
    env.insert(env.end(), options.env.begin(), options.env.end());
    std::vector<char*> envp;
    for (std::string& e : env) envp.push_back(&e[0]);
    envp.push_back(nullptr);
    std::vector<std::string> args = options.argv;
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);

    const int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
    const int out = open(options.stdoutPath.empty() ? "/dev/null" : options.stdoutPath.c_str(),
                         flags, 0644);
    const int err = open(options.stderrPath.empty() ? "/dev/null" : options.stderrPath.c_str(),
                         flags, 0644);
    const int in = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int ns = options.netns.empty() ? -2 : open(options.netns.c_str(), O_RDONLY | O_CLOEXEC);
    // The child reports a failed exec through this pipe; a successful exec closes it.
    int report[2] = {-1, -1};
    auto closeAll = [&] {
        for (int fd : {out, err, in, ns, report[0], report[1]}) {
            if (fd >= 0) close(fd);
        }
    };
    if (out < 0 || err < 0 || in < 0 || ns == -1 || pipe2(report, O_CLOEXEC) != 0) {
        *why = std::string("cannot prepare ") + options.argv[0] + ": " + strerror(errno);
        closeAll();
        return false;
    }
    const pid_t pid = fork();
    if (pid < 0) {
        *why = std::string("fork: ") + strerror(errno);
        closeAll();
        return false;
    }
    if (pid == 0) {
        int stage = 0;
        if (ns >= 0 && setns(ns, CLONE_NEWNET) != 0) {
            stage = 1;
        } else if (dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) {
            stage = 2;
        } else {
            // A parent that blocks signals for sigwait must not pass that on.
            sigset_t none;
            sigemptyset(&none);
            sigprocmask(SIG_SETMASK, &none, nullptr);
            signal(SIGPIPE, SIG_DFL);
            execve(argv[0], argv.data(), envp.data());
            stage = 3;
        }
        const int codes[2] = {stage, errno};
        ssize_t n = write(report[1], codes, sizeof(codes));
        (void)n;
        _exit(127);
    }
    close(report[1]);
    report[1] = -1;
    int codes[2] = {0, 0};
    ssize_t n;
    while ((n = read(report[0], codes, sizeof(codes))) < 0 && errno == EINTR) {
    }
    closeAll();
    mPid = pid;
    mStatus = -1;
    if (n > 0) {
        static const char* const kStages[] = {"", "enter the network namespace", "redirect output",
                                              "exec"};
        *why = std::string("cannot ") + kStages[codes[0] & 3] + " for " + options.argv[0] + ": " +
               strerror(codes[1]);
        reap(true);
        return false;
    }
    return true;
}

bool Process::reap(bool block) {
    if (mPid <= 0) return true;
    int status = 0;
    pid_t r;
    while ((r = waitpid(mPid, &status, block ? 0 : WNOHANG)) < 0 && errno == EINTR) {
    }
    if (r == mPid || (r < 0 && errno == ECHILD)) {
        mStatus = r == mPid ? status : -1;
        mPid = -1;
        return true;
    }
    return false;
}

bool Process::running() { return !reap(false); }

int Process::wait(int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!reap(false)) {
        if (std::chrono::steady_clock::now() >= deadline) return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return mStatus;
}

int Process::stop(int sig, int timeoutMs) {
    if (mPid <= 0) return mStatus;
    kill(mPid, sig);
    if (wait(timeoutMs) == -1 && mPid > 0) {
        kill(mPid, SIGKILL);
        reap(true);
    }
    return mStatus;
}

std::string Process::describe(int waitStatus) {
    if (waitStatus == -1) return "still running";
    if (WIFEXITED(waitStatus)) return "exited " + std::to_string(WEXITSTATUS(waitStatus));
    if (WIFSIGNALED(waitStatus)) {
        return std::string("killed by signal ") + std::to_string(WTERMSIG(waitStatus)) + " (" +
               strsignal(WTERMSIG(waitStatus)) + ")";
    }
    return "status " + std::to_string(waitStatus);
}

}  // namespace lumacast::demo
