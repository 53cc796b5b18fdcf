#include <hardware_legacy/uevent.h>

#include <errno.h>
#include <linux/netlink.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

// As in libhardware_legacy, with one difference: the port id is left to the kernel, so
// a process may open the socket more than once (tests do). Messages are not filtered by
// sender, so uevents injected from inside a test's own namespace arrive like the kernel's.

namespace {
std::mutex gInitMutex;
std::atomic<int> gFd{-1};
}  // namespace

extern "C" int uevent_init() {
    std::lock_guard<std::mutex> lock(gInitMutex);
    if (gFd.load() >= 0) return 1;
    const int s = socket(PF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    if (s < 0) return 0;
    int size = 64 * 1024;
    if (setsockopt(s, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0) {
        setsockopt(s, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
    }
    struct sockaddr_nl addr;
    memset(&addr, 0, sizeof(addr));
    addr.nl_family = AF_NETLINK;
    addr.nl_pid = 0;
    addr.nl_groups = 0xffffffff;
    if (bind(s, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) < 0) {
        close(s);
        return 0;
    }
    gFd.store(s);
    return 1;
}

extern "C" int uevent_get_fd() { return gFd.load(); }

extern "C" int uevent_next_event(char* buffer, int buffer_length) {
    const int fd = gFd.load();
    if (fd < 0 || buffer == nullptr || buffer_length <= 0) return 0;
    for (;;) {
        struct pollfd fds;
        fds.fd = fd;
        fds.events = POLLIN;
        fds.revents = 0;
        const int nr = poll(&fds, 1, -1);
        if (nr > 0 && (fds.revents & POLLIN)) {
            const ssize_t count = recv(fd, buffer, static_cast<size_t>(buffer_length), 0);
            if (count > 0) return static_cast<int>(count);
        } else if (nr < 0 && errno != EINTR) {
            return 0;
        } else if (nr > 0 && (fds.revents & (POLLERR | POLLHUP | POLLNVAL))) {
            return 0;
        }
    }
}
