#include "tools/demo/FakeTv.h"

#include <binder/IServiceManager.h>
#include <cutils/properties.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "tests/support/Namespace.h"
#include "tests/support/TestEnv.h"

namespace lumacast::demo {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kServiceWaitMs = 20000;
constexpr int kControlReplyMs = 10000;

using lumacast::test::lastLines;
using lumacast::test::readFile;

int connectUnix(const std::string& path) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof(addr.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(addr.sun_path, path.c_str(), path.size());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        const int err = errno;
        close(fd);
        errno = err;
        return -1;
    }
    return fd;
}

bool sendAll(int fd, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

// Reads one line (without its newline) before the deadline.
bool readLine(int fd, Clock::time_point deadline, std::string* line) {
    line->clear();
    for (;;) {
        const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) return false;
        struct pollfd p = {fd, POLLIN, 0};
        const int r = poll(&p, 1, static_cast<int>(left.count()));
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) return false;
        char c;
        const ssize_t n = read(fd, &c, 1);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        if (c == '\n') return true;
        *line += c;
    }
}

// Paths of the build this was compiled in.
std::string preload() {
    std::string p = DEVSIM_PRELOAD_PREFIX;
    if (!p.empty()) p += ":";
    return p + DEVSIM_LIBRARY;
}

}  // namespace

size_t countOf(const std::string& haystack, const std::string& needle) {
    if (needle.empty()) return 0;
    size_t n = 0;
    for (size_t at = haystack.find(needle); at != std::string::npos;
         at = haystack.find(needle, at + needle.size())) {
        ++n;
    }
    return n;
}

const char* FakeTv::lumacastctlPath() { return LUMACASTCTL_PATH; }
const char* FakeTv::devsimctlPath() { return DEVSIMCTL_PATH; }

FakeTv::FakeTv(std::string workDir) : mWorkDir(std::move(workDir)) {}

FakeTv::~FakeTv() { tearDown(); }

bool FakeTv::setUp(std::string* why) {
    mkdir(path("binder").c_str(), 0700);
    mkdir(path("properties").c_str(), 0700);
    // Every program of this TV, and this process's own binder clients, share these.
    setenv("LUMACAST_BINDER_DIR", path("binder").c_str(), 1);
    setenv("LUMACAST_PROPERTY_DIR", path("properties").c_str(), 1);
    if (!mDevice.setUp(why)) return false;
    mDeviceUp = true;
    // The camera's software is up before its USB network: it can listen on its address
    // before the TV sees the interface.
    if (mDevice.runInCamera(std::string("ip addr add ") + test::FakeDevice::kCameraAddress +
                            "/32 dev lo") != 0) {
        *why = "camera address";
        return false;
    }
    return true;
}

bool FakeTv::startCamsim(const std::string& scene, std::string* why) {
    const std::string control = path("camsim.sock");
    Process::Options o;
    o.argv = {CAMSIM_PATH, "--control", control, "--no-stdin", "--scene", scene};
    o.netns = mDevice.cameraNetns();
    o.stdoutPath = path("camsim.log");
    o.stderrPath = path("camsim.log");
    if (!mCamsim.start(o, why)) return false;
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (Clock::now() < deadline) {
        mCamsimFd = connectUnix(control);
        if (mCamsimFd >= 0) return true;
        if (!mCamsim.running()) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    *why = "camsim did not start (" + Process::describe(mCamsim.status()) +
           "): " + lastLines(readFile(path("camsim.log")), 5);
    return false;
}

void FakeTv::stopCamsim() {
    if (mCamsimFd >= 0) close(mCamsimFd);
    mCamsimFd = -1;
    mCamsim.stop(SIGTERM, 5000);
}

bool FakeTv::restartCamsim(const std::string& scene, std::string* why) {
    stopCamsim();
    return startCamsim(scene, why);
}

bool FakeTv::startDaemon(const std::string& devsimInit, std::string* why,
                         const std::vector<std::string>& env, bool waitForServices) {
    Process::Options o;
    o.argv = {LUMACASTD_PATH};
    o.env = {"LD_PRELOAD=" + preload(), "DEVSIM_CONTROL=" + path("devsim.sock"),
             "DEVSIM_INIT=" + devsimInit, "DEVSIM_LOG=" + path("devsim-transfers.log"),
             // The daemon's logcat lines are the record of what it did.
             "LUMACAST_LOG_QUIET=0"};
    // The daemon is killed, never exits, so its leaks cannot be checked here; the sanitizer
    // runtime it preloads would only report those of the `ip` it runs.
    if (const char* asan = getenv("ASAN_OPTIONS")) {
        o.env.push_back(std::string("ASAN_OPTIONS=") + asan + ":detect_leaks=0");
    }
    o.env.insert(o.env.end(), env.begin(), env.end());
    o.stdoutPath = path("lumacastd.log");
    o.stderrPath = path("lumacastd.log");
    if (!mDaemon.start(o, why)) return false;
    return !waitForServices || this->waitForServices(kServiceWaitMs, why);
}

// Whether `pid` holds a kernel uevent socket (NETLINK_KOBJECT_UEVENT, 15) in this network
// namespace: from then on it hears every plug and unplug.
static bool listensForUevents(pid_t pid) {
    std::set<std::string> inodes;
    const std::string fdDir = "/proc/" + std::to_string(pid) + "/fd";
    if (DIR* d = opendir(fdDir.c_str())) {
        while (struct dirent* e = readdir(d)) {
            char target[64];
            const ssize_t n =
                    readlink((fdDir + "/" + e->d_name).c_str(), target, sizeof(target) - 1);
            if (n <= 0) continue;
            target[n] = '\0';
            if (strncmp(target, "socket:[", 8) == 0) {
                inodes.insert(std::string(target + 8, strcspn(target + 8, "]")));
            }
        }
        closedir(d);
    }
    std::istringstream table(readFile("/proc/net/netlink"));
    std::string line;
    std::getline(table, line);  // header
    while (std::getline(table, line)) {
        std::istringstream row(line);
        std::string sk, eth, port, groups, rmem, wmem, dump, locks, drops, inode;
        row >> sk >> eth >> port >> groups >> rmem >> wmem >> dump >> locks >> drops >> inode;
        if (eth == "15" && inodes.count(inode) != 0) return true;
    }
    return false;
}

bool FakeTv::waitForServices(int timeoutMs, std::string* why) {
    const auto sm = android::defaultServiceManager();
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (Clock::now() < deadline) {
        if (!daemonRunning(why)) return false;
        // The watcher scans for a camera first and only then listens for uevents: a plug
        // in between would go unheard, so the TV is ready once the daemon listens.
        if (sm->checkService(android::String16("lumacastservice")) != nullptr &&
            sm->checkService(android::String16("cameramotorservice")) != nullptr &&
            access(path("devsim.sock").c_str(), F_OK) == 0 && listensForUevents(mDaemon.pid())) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    *why = "lumacastd did not register its services and listen for uevents within " +
           std::to_string(timeoutMs) + " ms";
    return false;
}

bool FakeTv::daemonRunning(std::string* why) {
    if (mDaemon.running()) return true;
    if (why != nullptr) {
        *why = "lumacastd " + Process::describe(mDaemon.status()) +
               "; its log ends:" + lastLines(daemonLog(), 15);
    }
    return false;
}

int FakeTv::stopDaemon() { return mDaemon.stop(SIGKILL, 5000); }

void FakeTv::tearDown() {
    mDaemon.stop(SIGKILL, 5000);
    stopCamsim();
    if (mDeviceUp) mDevice.tearDown();
    mDeviceUp = false;
}

bool FakeTv::plug(const test::UsbProduct& product, const std::string& scene, std::string* why) {
    // The camera boots while the TV enumerates its USB functions.
    if (!startCamsim(scene, why)) return false;
    if (!mDevice.plug(product)) {
        *why = "the fake device refused the plug";
        stopCamsim();
        return false;
    }
    return true;
}

bool FakeTv::unplug(std::string* why) {
    // The network goes first, so the camera's software cannot say goodbye on the link.
    bool ok = mDevice.unplug();
    // netd's part on the TV: sockets on an address that went away are destroyed, and their
    // owners read ECONNABORTED instead of waiting for ever on a peer that is gone.
    ok = test::runCommand("ss -K dst 192.168.111.0/24 >/dev/null 2>&1") == 0 && ok;
    stopCamsim();
    if (!ok) *why = "the fake device refused the unplug";
    return ok;
}

std::string FakeTv::camsim(const std::string& command) {
    if (mCamsimFd < 0) return "error: camsim is not running";
    if (!sendAll(mCamsimFd, command + "\n"))
        return "error: camsim control: " + std::string(strerror(errno));
    const auto deadline = Clock::now() + std::chrono::milliseconds(kControlReplyMs);
    std::string reply;
    if (!readLine(mCamsimFd, deadline, &reply)) return "error: no reply from camsim";
    // "commands" answers "ok N" and then N indented lines.
    if (command.compare(0, 8, "commands") == 0 && reply.compare(0, 3, "ok ") == 0) {
        const long n = strtol(reply.c_str() + 3, nullptr, 10);
        std::string line;
        for (long i = 0; i < n && readLine(mCamsimFd, deadline, &line); ++i) reply += "\n" + line;
    }
    return reply;
}

std::string FakeTv::devsim(const std::string& command) {
    const int fd = connectUnix(path("devsim.sock"));
    if (fd < 0) return "error: devsim control: " + std::string(strerror(errno));
    std::string reply;
    if (sendAll(fd, command + "\n")) {
        const auto deadline = Clock::now() + std::chrono::milliseconds(kControlReplyMs);
        char buf[4096];
        for (;;) {
            struct pollfd p = {fd, POLLIN, 0};
            const auto left =
                    std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0 || poll(&p, 1, static_cast<int>(left.count())) <= 0) break;
            const ssize_t n = read(fd, buf, sizeof(buf));
            if (n <= 0) break;
            reply.append(buf, static_cast<size_t>(n));
        }
    }
    close(fd);
    while (!reply.empty() && reply.back() == '\n') reply.pop_back();
    return reply;
}

FakeTv::CtlResult FakeTv::ctl(const std::vector<std::string>& args, int timeoutMs) {
    static int sequence = 0;
    const std::string stem = path("ctl-" + std::to_string(++sequence));
    CtlResult result;
    Process p;
    Process::Options o;
    o.argv = {LUMACASTCTL_PATH};
    o.argv.insert(o.argv.end(), args.begin(), args.end());
    o.stdoutPath = stem + ".out";
    o.stderrPath = stem + ".err";
    std::string why;
    if (!p.start(o, &why)) {
        result.err = why;
        return result;
    }
    const int status = p.wait(timeoutMs);
    if (status == -1) p.stop(SIGKILL, 1000);
    result.out = readFile(o.stdoutPath);
    result.err = readFile(o.stderrPath);
    unlink(o.stdoutPath.c_str());
    unlink(o.stderrPath.c_str());
    if (status != -1 && WIFEXITED(status)) {
        result.exitCode = WEXITSTATUS(status);
    } else {
        result.err += "\nlumacastctl " + Process::describe(status);
    }
    return result;
}

std::unique_ptr<Process> FakeTv::startCtl(const std::vector<std::string>& args,
                                          const std::string& outPath, std::string* why) {
    auto p = std::make_unique<Process>();
    Process::Options o;
    o.argv = {LUMACASTCTL_PATH};
    o.argv.insert(o.argv.end(), args.begin(), args.end());
    o.stdoutPath = outPath;
    o.stderrPath = outPath + ".err";
    if (!p->start(o, why)) return nullptr;
    return p;
}

std::string FakeTv::daemonLog() const { return readFile(path("lumacastd.log")); }

bool FakeTv::waitForLog(const std::string& text, int timeoutMs, int count) const {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (countOf(daemonLog(), text) >= static_cast<size_t>(count)) return true;
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

std::string FakeTv::property(const std::string& name) const {
    char value[PROPERTY_VALUE_MAX];
    property_get(name.c_str(), value, "");
    return value;
}

bool FakeTv::waitForProperty(const std::string& name, const std::string& value,
                             int timeoutMs) const {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (property(name) == value) return true;
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

}  // namespace lumacast::demo
