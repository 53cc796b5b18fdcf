// Time of a whole MCU upgrade through each protocol against devsim with an instant bus, set
// against the pauses the protocol itself mandates (measured in the same run: devsim records
// every pause the upgrade asks for). Real time throughout.
//   bench_upgrade            64 KiB images (Birch: 65535 bytes, the largest its 16-bit size
//                            field describes); about 140 s
//   bench_upgrade --smoke    small images, a few seconds
// Last line: upgrade_overhead_ratio=<wall time / mandated pauses>.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "motor/MotorBirch.h"
#include "motor/MotorCedar.h"
#include "tools/devsim/DevSim.h"

namespace devsim = lumacast::devsim;
using Clock = std::chrono::steady_clock;

namespace {

std::string writeImage(size_t size) {
    const char* tmp = getenv("TMPDIR");
    std::string path = std::string(tmp && *tmp ? tmp : "/tmp") + "/bench_upgrade-XXXXXX";
    const int fd = mkstemp(&path[0]);
    if (fd < 0) return "";
    std::mt19937 gen(1);
    std::vector<char> bytes(size);
    for (char& b : bytes) b = static_cast<char>(gen());
    const bool ok = write(fd, bytes.data(), size) == static_cast<ssize_t>(size);
    close(fd);
    return ok ? path : "";
}

struct Result {
    double wallS = 0;
    double mandatedS = 0;
    int code = -1;
};

template <typename Upgrade>
Result run(const char* name, size_t size, Upgrade upgrade) {
    Result r;
    const std::string path = writeImage(size);
    if (path.empty()) {
        fprintf(stderr, "%s: cannot write the image\n", name);
        return r;
    }
    devsim::clearPauses();
    const auto start = Clock::now();
    r.code = upgrade(path);
    r.wallS = std::chrono::duration<double>(Clock::now() - start).count();
    for (const devsim::Pause& p : devsim::pauses()) r.mandatedS += p.us / 1e6;
    unlink(path.c_str());
    printf("%s: image %zu bytes, result %d, wall %.3f s, mandated pauses %.3f s, ratio %.4f\n",
           name, size, r.code, r.wallS, r.mandatedS, r.wallS / r.mandatedS);
    return r;
}

}  // namespace

int main(int argc, char** argv) {
    const bool smoke = argc > 1 && strcmp(argv[1], "--smoke") == 0;
    // Log lines stand in for logd; on the host they would measure the terminal.
    setenv("LUMACAST_LOG_QUIET", "1", 0);

    devsim::reset();
    const Result birch = run("birch", smoke ? 2048 : 65535, [](const std::string& path) {
        return android::lumacast::MotorBirch().motor_mcu_upgrade(path);
    });
    const Result cedar = run("cedar", smoke ? 512 : 65536, [](const std::string& path) {
        return android::lumacast::MotorCedar().motor_mcu_upgrade(path);
    });
    if (birch.code != 0 || cedar.code != 0 || birch.mandatedS <= 0 || cedar.mandatedS <= 0) {
        fprintf(stderr, "an upgrade failed\n");
        return 1;
    }
    printf("upgrade_overhead_ratio=%.4f\n",
           (birch.wallS + cedar.wallS) / (birch.mandatedS + cedar.mandatedS));
    return 0;
}
