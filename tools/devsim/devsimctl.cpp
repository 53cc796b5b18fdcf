// Sends one command to the devsim inside another process (its DEVSIM_CONTROL socket) and
// prints the reply.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

#include "tools/devsim/CommandHelp.h"

namespace {

void usage(FILE* out) {
    fprintf(out,
            "usage: devsimctl [--socket PATH] COMMAND [ARG...]\n"
            "\n"
            "Steers the simulated motor board (devsim) preloaded into a running process,\n"
            "usually lumacastd on the fake TV: PATH is the process's DEVSIM_CONTROL socket\n"
            "(default $DEVSIM_SOCKET; scripts/demo --keep prints it). Prints the reply: \"ok\"\n"
            "and what was asked for, or \"error: \" and why (nothing is changed then).\n"
            "Faults stay armed until used up, cleared or reset; 'status' shows them and how\n"
            "often each fired.\n"
            "\n"
            "%s"
            "\n"
            "Examples:\n"
            "  devsimctl cedar 2 reject-package 2 3   # the MCU refuses package 2 three times\n"
            "  devsimctl refuse bus=2 reg=0x21 count=1\n"
            "  devsimctl status\n"
            "\n"
            "Exit status: 0 ok, 1 the command was refused, 2 usage or no connection.\n",
            lumacast::devsim::kCommandHelp);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
        usage(stdout);
        return 0;
    }
    const char* path = getenv("DEVSIM_SOCKET");
    int first = 1;
    if (argc > 2 && strcmp(argv[1], "--socket") == 0) {
        path = argv[2];
        first = 3;
    }
    if (first >= argc) {
        fprintf(stderr, "devsimctl: name a command (devsimctl --help lists them)\n");
        return 2;
    }
    if (path == nullptr) {
        fprintf(stderr, "devsimctl: no socket: give --socket PATH or set DEVSIM_SOCKET\n");
        return 2;
    }
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
