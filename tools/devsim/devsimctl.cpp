// Sends one command to the devsim inside another process (its DEVSIM_CONTROL socket) and
// prints the reply. Exit status: 0 ok, 1 the command was refused, 2 usage or connection.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

namespace {

int usage() {
    fprintf(stderr,
            "usage: devsimctl [--socket PATH] COMMAND [ARG...]\n"
            "  PATH defaults to $DEVSIM_SOCKET. Commands are those of tools/devsim/Control.cpp,\n"
            "  e.g. 'board cedar', 'cedar 2 state 3', 'refuse bus=2 count=5', 'transfers 10'.\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    const char* path = getenv("DEVSIM_SOCKET");
    int first = 1;
    if (argc > 2 && strcmp(argv[1], "--socket") == 0) {
        path = argv[2];
        first = 3;
    }
    if (path == nullptr || first >= argc) return usage();
    std::string line;
    for (int i = first; i < argc; ++i) {
        if (i > first) line += ' ';
        line += argv[i];
    }
    line += '\n';

    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof(addr.sun_path)) {
        fprintf(stderr, "devsimctl: socket path too long: %s\n", path);
        return 2;
    }
    strcpy(addr.sun_path, path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        fprintf(stderr, "devsimctl: cannot reach %s: %s\n", path, strerror(errno));
        if (fd >= 0) close(fd);
        return 2;
    }
    if (send(fd, line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) {
        fprintf(stderr, "devsimctl: send failed: %s\n", strerror(errno));
        close(fd);
        return 2;
    }
    std::string reply;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd, buf, sizeof(buf))) > 0) reply.append(buf, static_cast<size_t>(n));
    close(fd);
    fputs(reply.c_str(), stdout);
    return reply.compare(0, 2, "ok") == 0 ? 0 : 1;
}
