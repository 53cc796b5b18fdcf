#pragma once

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/Namespace.h"

// Shared by the link benchmarks: they talk to camsim on the camera's real address, so
// they run whole inside a private user + network namespace of their own.
namespace lumacast::bench {

// Enters the namespace and makes 192.168.111.10 local there. Exits with the skip code
// when namespaces are refused here.
inline void enterBenchNamespace() {
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
    const int rc = lumacast::test::runCommand("ip addr add 192.168.111.10/32 dev lo 2>/dev/null");
    if (rc != 0 && rc != 2) {
        fprintf(stderr, "cannot make the camera address local (ip: %d)\n", rc);
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
