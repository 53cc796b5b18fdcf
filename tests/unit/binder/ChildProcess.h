#pragma once

#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace lumacast::test {

// Another program run as a separate process for the length of a test; killed at the end.
class ChildProcess {
  public:
    // Under a cross build's emulator (LUMACAST_TEST_EMULATOR, words separated by blanks)
    // the program is started through it, as ctest starts the test itself.
    ChildProcess(const std::string& path, const std::vector<std::string>& args) {
        std::vector<std::string> all;
        if (const char* emulator = getenv("LUMACAST_TEST_EMULATOR")) {
            std::istringstream words(emulator);
            for (std::string w; words >> w;) all.push_back(w);
        }
        all.push_back(path);
        all.insert(all.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (std::string& a : all) argv.push_back(a.data());
        argv.push_back(nullptr);
        if (posix_spawnp(&mPid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
            mPid = -1;
        }
    }
    ~ChildProcess() {
        kill(SIGKILL);
        wait();
    }

    pid_t pid() const { return mPid; }
    bool running() const { return mPid > 0; }

    void kill(int sig) {
        if (mPid > 0) ::kill(mPid, sig);
    }

    // The wait status, or -1 once reaped.
    int wait() {
        if (mPid <= 0) return -1;
        int status = 0;
        while (waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
        }
        mPid = -1;
        return status;
    }

  private:
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    pid_t mPid = -1;
};

}  // namespace lumacast::test
