// bench_command: round trip of setZoomMode through the streaming service, the link and
// camsim answering at once, against a bare TCP ping-pong of the same bytes with a camsim
// on the same kind of socket.
//
//   bench_command [--smoke]
// Last line: command_rtt_ratio=<daemon median/bare median> max_ms=<slowest daemon call>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "bench/support/BenchEnv.h"
#include "bench/support/LinkUnderTest.h"
#include "tools/camsim/CameraSimulator.h"

using Clock = std::chrono::steady_clock;
using lumacast::camsim::CameraSimulator;

namespace {

// The bare side's camera listens next to the daemon's, so both stay connected.
constexpr uint16_t kBarePort = 10002;

double microseconds(Clock::duration d) {
    return std::chrono::duration<double, std::micro>(d).count();
}

int connectBare() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(kBarePort);
    inet_pton(AF_INET, "192.168.111.10", &addr.sin_addr);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        perror("bare connect");
        exit(1);
    }
    // As the link does: a command is one small write whose answer is awaited.
    const int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
    return fd;
}

bool readAll(int fd, char* buffer, size_t len) {
    size_t got = 0;
    while (got < len) {
        const ssize_t n = read(fd, buffer + got, len - got);
        if (n <= 0) return false;
        got += static_cast<size_t>(n);
    }
    return true;
}

// One ping-pong: the daemon's frame out, the camera's whole result message back.
double bareCall(int fd, const std::string& frame) {
    const auto start = Clock::now();
    if (write(fd, frame.data(), frame.size()) != static_cast<ssize_t>(frame.size())) {
        perror("bare write");
        exit(1);
    }
    char head[24];
    char text[256];
    if (!readAll(fd, head, sizeof(head))) exit(1);
    const uint32_t len = (static_cast<uint32_t>(static_cast<uint8_t>(head[16])) << 24) |
                         (static_cast<uint32_t>(static_cast<uint8_t>(head[17])) << 16) |
                         (static_cast<uint32_t>(static_cast<uint8_t>(head[18])) << 8) |
                         static_cast<uint32_t>(static_cast<uint8_t>(head[19]));
    if (len > sizeof(text) || !readAll(fd, text, len)) exit(1);
    return microseconds(Clock::now() - start);
}

}  // namespace

int main(int argc, char** argv) {
    lumacast::bench::enterBenchNamespace();
    const bool smoke = lumacast::bench::hasFlag(argc, argv, "--smoke");
    const int perRound = smoke ? 500 : 2000;
    const int rounds = smoke ? 2 : 10;

    CameraSimulator camera("192.168.111.10", 10001);
    CameraSimulator bareCamera("192.168.111.10", kBarePort);
    std::string why;
    if (!camera.start(&why) || !bareCamera.start(&why)) {
        fprintf(stderr, "camsim: %s\n", why.c_str());
        return 1;
    }
    android::sp<android::lumacast::LumacastService> service =
            lumacast::bench::connectedService(&camera);
    if (service == nullptr) {
        fprintf(stderr, "the daemon's link did not connect\n");
        return 1;
    }
    const int bareFd = connectBare();
    const std::string frame =
            lumacast::camsim::commandFrame("{\"cmd_id\":14,\"param\":1,\"mode\":2}");

    // Warm both paths up.
    for (int i = 0; i < 200; ++i) {
        bool ok = false;
        service->setZoomMode(1, 2, &ok);
        bareCall(bareFd, frame);
    }

    std::vector<double> daemon;
    std::vector<double> bare;
    int failed = 0;
    // Interleaved in rounds so that other load on the machine hits both alike.
    for (int r = 0; r < rounds; ++r) {
        for (int i = 0; i < perRound; ++i) {
            bool ok = false;
            const auto start = Clock::now();
            service->setZoomMode(1, 2, &ok);
            daemon.push_back(microseconds(Clock::now() - start));
            if (!ok) ++failed;
        }
        for (int i = 0; i < perRound; ++i) bare.push_back(bareCall(bareFd, frame));
    }
    close(bareFd);
    service.clear();
    camera.stop();
    bareCamera.stop();

    const double daemonMedian = lumacast::bench::median(daemon);
    const double bareMedian = lumacast::bench::median(bare);
    const double slowest = *std::max_element(daemon.begin(), daemon.end());
    std::vector<double> sorted = daemon;
    std::sort(sorted.begin(), sorted.end());
    printf("%zu calls each; daemon median %.1f us, p99 %.1f us; bare median %.1f us; failed %d\n",
           daemon.size(), daemonMedian, sorted[sorted.size() * 99 / 100], bareMedian, failed);
    printf("command_rtt_ratio=%.2f max_ms=%.2f\n", daemonMedian / bareMedian, slowest / 1000.0);
    return failed == 0 ? 0 : 1;
}
