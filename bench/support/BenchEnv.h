#pragma once

#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/Namespace.h"

// Shared by the link benchmarks: they talk to camsim on the camera's real address, so
// they run whole inside a private user + network namespace of their own.
namespace lumacast::bench {

// Asks the kernel, for as long as this process lives, to keep idle CPUs ready to run at
// once (PM QoS through /dev/cpu_dma_latency, as latency benchmarks such as cyclictest do).
// A command crosses four threads where a bare exchange crosses two; on a virtual machine
// each wake-up of an idle CPU costs tens of microseconds, which would otherwise measure the
// machine's idle states rather than the code. The request ends when the process exits.
// Needs root outside any user namespace, so it is made first; without it (or with
// LUMACAST_BENCH_CPU_IDLE=1) the benchmark still runs and says so.
inline void holdCpusAwake() {
    static int fd = -1;
    if (fd >= 0) return;
    const char* idle = getenv("LUMACAST_BENCH_CPU_IDLE");
    if (idle == nullptr || strcmp(idle, "1") != 0) {
        fd = open("/dev/cpu_dma_latency", O_WRONLY | O_CLOEXEC);
    }
    const int32_t zero = 0;
    const bool held = fd >= 0 && write(fd, &zero, sizeof(zero)) == sizeof(zero);
    printf("cpu_latency_held=%d\n", held ? 1 : 0);
}

// Enters the namespace and makes 192.168.111.10 local there. Exits with the skip code
// when namespaces are refused here.
inline void enterBenchNamespace() {
    holdCpusAwake();
    // The daemon's log lines would drown the figures; a benchmark has nobody to read them.
    setenv("LUMACAST_LOG_QUIET", "1", 0);
    lumacast::test::enterNamespaceOrExit();
    // A private property store, so the service's properties touch nothing else.
    static std::string propertyDir = [] {
        char templ[] = "/tmp/lumacast-bench-XXXXXX";
        if (mkdtemp(templ) == nullptr) {
            perror("mkdtemp");
            exit(1);
        }
        return std::string(templ);
    }();
    setenv("LUMACAST_PROPERTY_DIR", (propertyDir + "/properties").c_str(), 1);
    atexit([] { lumacast::test::runCommand("rm -rf '" + propertyDir + "'"); });
    if (!lumacast::test::putCameraAddressOnLoopback()) {
        fprintf(stderr, "cannot make the camera address local\n");
        exit(1);
    }
}

inline bool hasFlag(int argc, char** argv, const char* flag) {
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], flag) == 0) return true;
    }
    return false;
}

inline double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

}  // namespace lumacast::bench
