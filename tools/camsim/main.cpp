// camsim: plays the USB AI camera's end of the link.
//
// Run it only inside a network namespace of your own where the camera address is local,
// e.g.:  unshare -rn sh -c 'ip link set lo up; ip addr add 192.168.111.10/32 dev lo; camsim'
// Commands come from stdin and, with --control PATH, from a Unix socket (one line each,
// one reply line each; `help` lists them).

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tools/camsim/CameraSimulator.h"
#include "tools/camsim/ControlProtocol.h"

using lumacast::camsim::CameraSimulator;
using lumacast::camsim::ControlProtocol;
using lumacast::camsim::StreamPlan;

namespace {

volatile sig_atomic_t gStop = 0;

void onSignal(int) { gStop = 1; }

void usage(FILE* out) {
    fprintf(out,
            "usage: camsim [--address A] [--port P] [--control PATH] [--scene default|none]\n"
            "              [--no-stdin] [--replay RECORDING [--speed X]]\n"
            "  Listens as the camera (default 192.168.111.10:10001) and answers commands.\n"
            "  --replay plays what `lumacastctl listen --record` kept, at its pace times X.\n"
            "  Run it only in a network namespace of your own.\n\n%s",
            ControlProtocol::usage());
}

int openControlSocket(const std::string& path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    struct sockaddr_un addr;
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof(addr.sun_path)) {
        close(fd);
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(addr.sun_path, path.c_str(), path.size());
    unlink(path.c_str());
    if (bind(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0 ||
        listen(fd, 4) != 0) {
        const int err = errno;
        close(fd);
        errno = err;
        return -1;
    }
    return fd;
}

void defaultScene(CameraSimulator* camera) {
    StreamPlan frames;
    frames.dataType = lumacast::camsim::kTypeFrame;
    frames.blockSize = 16 * 1024;
    frames.messagesPerSecond = 15;
    camera->startStream(frames);
    StreamPlan ai;
    ai.dataType = lumacast::camsim::kTypeAiJson;
    ai.payload = "{\"faces\":[{\"x\":120,\"y\":80,\"w\":64,\"h\":64}]}";
    ai.messagesPerSecond = 5;
    camera->startStream(ai);
    StreamPlan proto;
    proto.dataType = lumacast::camsim::kTypeAiProtobuf;
    proto.blockSize = 48;
    proto.messagesPerSecond = 5;
    camera->startStream(proto);
}

struct Peer {
    int fd;
    std::string pending;
};

// Runs complete lines of `buffer`; replies go to `out`. False once quit was asked.
bool runLines(ControlProtocol* control, std::string* buffer, int out) {
    size_t nl;
    while ((nl = buffer->find('\n')) != std::string::npos) {
        const std::string line = buffer->substr(0, nl);
        buffer->erase(0, nl + 1);
        const std::string reply = control->execute(line) + "\n";
        ssize_t n = write(out, reply.data(), reply.size());
        (void)n;
        if (control->quitRequested()) return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::string address = "192.168.111.10";
    long port = 10001;
    std::string controlPath;
    std::string scene = "none";
    bool useStdin = true;
    std::string replay;
    std::string speed = "1";
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        auto value = [&](const char* name) -> const char* {
            if (i + 1 >= argc) {
                fprintf(stderr, "camsim: %s needs a value\n", name);
                exit(2);
            }
            return argv[++i];
        };
        if (arg == "--address") {
            address = value("--address");
        } else if (arg == "--port") {
            char* end = nullptr;
            port = strtol(value("--port"), &end, 10);
            if (*end != '\0' || port < 1 || port > 65535) {
                fprintf(stderr, "camsim: bad port\n");
                return 2;
            }
        } else if (arg == "--control") {
            controlPath = value("--control");
        } else if (arg == "--scene") {
            scene = value("--scene");
            if (scene != "default" && scene != "none") {
                fprintf(stderr, "camsim: unknown scene '%s'\n", scene.c_str());
                return 2;
            }
        } else if (arg == "--replay") {
            replay = value("--replay");
        } else if (arg == "--speed") {
            speed = value("--speed");
        } else if (arg == "--no-stdin") {
            useStdin = false;
        } else if (arg == "-h" || arg == "--help") {
            usage(stdout);
            return 0;
        } else {
            fprintf(stderr, "camsim: unknown argument '%s'\n", arg.c_str());
            usage(stderr);
            return 2;
        }
    }

    signal(SIGPIPE, SIG_IGN);
    struct sigaction sa;
    memset(&sa, 0, sizeof(sa));
    sa.sa_handler = onSignal;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);

    CameraSimulator camera(address, static_cast<uint16_t>(port));
    ControlProtocol control(&camera);
    if (!replay.empty()) {
        // Waits for the daemon's connection, so it may be set up before listening.
        const std::string reply = control.execute("replay " + replay + " speed=" + speed);
        if (reply.compare(0, 2, "ok") != 0) {
            fprintf(stderr, "camsim: --replay: %s\n", reply.c_str());
            return 2;
        }
    }
    std::string why;
    if (!camera.start(&why)) {
        fprintf(stderr, "camsim: %s\n", why.c_str());
        return 1;
    }
    int controlFd = -1;
    if (!controlPath.empty()) {
        controlFd = openControlSocket(controlPath);
        if (controlFd < 0) {
            fprintf(stderr, "camsim: control socket %s: %s\n", controlPath.c_str(),
                    strerror(errno));
            return 1;
        }
    }
    if (scene == "default") defaultScene(&camera);
    fprintf(stderr, "camsim: listening on %s:%ld\n", address.c_str(), port);

    std::string stdinBuffer;
    std::vector<Peer> peers;
    bool running = true;
    while (running && !gStop) {
        std::vector<struct pollfd> fds;
        if (useStdin) fds.push_back({STDIN_FILENO, POLLIN, 0});
        if (controlFd >= 0) fds.push_back({controlFd, POLLIN, 0});
        for (const Peer& p : peers) fds.push_back({p.fd, POLLIN, 0});
        if (poll(fds.data(), fds.size(), 200) < 0) {
            if (errno == EINTR) continue;
            perror("camsim: poll");
            break;
        }
        size_t index = 0;
        char buffer[4096];
        if (useStdin) {
            if (fds[index].revents != 0) {
                const ssize_t n = read(STDIN_FILENO, buffer, sizeof(buffer));
                if (n <= 0) {
                    useStdin = false;  // stdin closed: keep serving the control socket
                    if (controlFd < 0) running = false;
                } else {
                    stdinBuffer.append(buffer, static_cast<size_t>(n));
                    running = runLines(&control, &stdinBuffer, STDOUT_FILENO);
                }
            }
            ++index;
        }
        // A peer accepted below has no entry in this round's poll set.
        const size_t polledPeers = peers.size();
        if (controlFd >= 0) {
            if (fds[index].revents != 0) {
                const int fd = accept4(controlFd, nullptr, nullptr, SOCK_CLOEXEC);
                if (fd >= 0) peers.push_back({fd, ""});
            }
            ++index;
        }
        for (size_t i = 0; running && i < polledPeers; ++i, ++index) {
            if (fds[index].revents == 0) continue;
            const ssize_t n = read(peers[i].fd, buffer, sizeof(buffer));
            if (n <= 0) {
                close(peers[i].fd);
                peers[i].fd = -1;
                continue;
            }
            peers[i].pending.append(buffer, static_cast<size_t>(n));
            running = runLines(&control, &peers[i].pending, peers[i].fd);
        }
        std::vector<Peer> alive;
        for (const Peer& p : peers) {
            if (p.fd >= 0) alive.push_back(p);
        }
        peers.swap(alive);
    }
    for (const Peer& p : peers) close(p.fd);
    if (controlFd >= 0) {
        close(controlFd);
        unlink(controlPath.c_str());
    }
    camera.stop();
    return 0;
}
