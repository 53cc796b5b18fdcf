#include "tests/support/Namespace.h"

#include <errno.h>
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace lumacast::test {

namespace {

bool writeFile(const char* path, const std::string& text) {
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const ssize_t n = write(fd, text.data(), text.size());
    const int saved = errno;
    close(fd);
    errno = saved;
    return n == static_cast<ssize_t>(text.size());
}

}  // namespace

NamespaceResult enterUserMountNetNamespace(std::string* why) {
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWNET) != 0) {
        if (why) *why = std::string("unshare: ") + strerror(errno);
        return NamespaceResult::kRefused;
    }
    // Same maps as `unshare -r`: ourselves as root.
    writeFile("/proc/self/setgroups", "deny");
    if (!writeFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n") ||
        !writeFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n")) {
        if (why) *why = std::string("id maps: ") + strerror(errno);
        return NamespaceResult::kRefused;
    }
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        if (why) *why = std::string("private mounts: ") + strerror(errno);
        return NamespaceResult::kRefused;
    }
    setenv("LUMACAST_IN_TEST_NAMESPACE", "1", 1);
    return NamespaceResult::kEntered;
}

bool inTestNamespace() {
    const char* v = getenv("LUMACAST_IN_TEST_NAMESPACE");
    return v != nullptr && strcmp(v, "1") == 0;
}

bool putCameraAddressOnLoopback() {
    if (!inTestNamespace()) return false;
    // ip exits with 2 when the address is there already.
    const int rc = runCommand("ip addr add 192.168.111.10/32 dev lo 2>/dev/null");
    return rc == 0 || rc == 2;
}

void enterNamespaceOrExit(bool fresh) {
    if (fresh || !inTestNamespace()) {
        std::string why;
        if (enterUserMountNetNamespace(&why) != NamespaceResult::kEntered) {
            const char* require = getenv("LUMACAST_REQUIRE_NAMESPACES");
            if (require != nullptr && strcmp(require, "1") == 0) {
                fprintf(stderr, "namespaces refused (%s) but LUMACAST_REQUIRE_NAMESPACES=1\n",
                        why.c_str());
                exit(1);
            }
            printf("skipped: needs namespaces (%s)\n", why.c_str());
            fflush(stdout);
            exit(kSkipExitCode);
        }
    }
    setInterfaceUp("lo");
}

bool enterFreshNetAndMountNamespaces(std::string* why) {
    bool ok = unshare(CLONE_NEWNET | CLONE_NEWNS) == 0;
    if (ok) {
        ok = mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    } else if (errno == EINVAL) {
        ok = unshare(CLONE_NEWNET) == 0;
    }
    if (!ok) {
        *why = strerror(errno);
        return false;
    }
    setInterfaceUp("lo");
    return true;
}

bool setInterfaceUp(const char* name) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    struct ifreq ifr;
    memset(&ifr, 0, sizeof(ifr));
    strncpy(ifr.ifr_name, name, IFNAMSIZ - 1);
    bool ok = ioctl(fd, SIOCGIFFLAGS, &ifr) == 0;
    if (ok) {
        ifr.ifr_flags |= IFF_UP;
        ok = ioctl(fd, SIOCSIFFLAGS, &ifr) == 0;
    }
    const int saved = errno;
    close(fd);
    errno = saved;
    return ok;
}

int runCommand(const std::string& command) {
    const int status = system(command.c_str());
    if (status < 0 || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}

std::string commandOutput(const std::string& command) {
    std::string out;
    FILE* p = popen(command.c_str(), "r");
    if (p == nullptr) return out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), p)) > 0) out.append(buf, n);
    pclose(p);
    return out;
}

}  // namespace lumacast::test
