#include "tests/support/Uevent.h"

#include <linux/netlink.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>

namespace lumacast::test {

std::string kernelUevent(const std::string& action, const std::string& devpath,
                         const std::string& subsystem, const std::vector<std::string>& extra) {
    static std::atomic<unsigned> seqnum{1000};
    std::string m;
    const auto field = [&m](const std::string& s) {
        m += s;
        m.push_back('\0');
    };
    field(action + "@" + devpath);
    field("ACTION=" + action);
    field("DEVPATH=" + devpath);
    field("SUBSYSTEM=" + subsystem);
    for (const auto& e : extra) field(e);
    field("SEQNUM=" + std::to_string(seqnum++));
    return m;
}

bool sendUevent(const std::string& message) {
    const int fd = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    if (fd < 0) return false;
    struct sockaddr_nl dst;
    memset(&dst, 0, sizeof(dst));
    dst.nl_family = AF_NETLINK;
    dst.nl_pid = 0;
    dst.nl_groups = 1;
    const ssize_t n = sendto(fd, message.data(), message.size(), 0,
                             reinterpret_cast<struct sockaddr*>(&dst), sizeof(dst));
    close(fd);
    return n == static_cast<ssize_t>(message.size());
}

}  // namespace lumacast::test
