#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace lumacast::demo {

// A program started by the fake TV: its own environment, optionally inside another network
// namespace, its output in files. Owns the process: the destructor kills what still runs.
class Process {
  public:
    struct Options {
        std::vector<std::string> argv;
        // "NAME=value" entries added to (or replacing in) this process's environment.
        std::vector<std::string> env;
        // /proc/PID/ns/net of the namespace to run in; empty: this one.
        std::string netns;
        // Files for stdout and stderr; empty: /dev/null. The same path may be given twice.
        std::string stdoutPath;
        std::string stderrPath;
    };

    Process() = default;
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // False with a reason when the program could not be started; a program that starts
    // and then fails shows in its exit status.
    bool start(const Options& options, std::string* why);

    pid_t pid() const { return mPid; }
    // Whether it is still running (reaps it if not).
    bool running();
    // Waits up to `timeoutMs` for it to end; its wait status, or -1 when it did not end.
    int wait(int timeoutMs);
    // Sends `sig`, waits up to `timeoutMs`, then kills it; its wait status.
    int stop(int sig, int timeoutMs);
    // The wait status once it has ended (see running/wait/stop).
    int status() const { return mStatus; }

    // "exited 0", "killed by signal 9", ... for reports.
    static std::string describe(int waitStatus);

  private:
    bool reap(bool block);

    pid_t mPid = -1;
    int mStatus = -1;
};

}  // namespace lumacast::demo
