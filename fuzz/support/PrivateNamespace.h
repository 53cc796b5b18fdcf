#pragma once

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "tests/support/Namespace.h"

namespace lumacast::fuzz {

// Moves the fuzzer into a user + mount + network namespace of its own before it starts
// any thread, so the daemon code it drives (the camera link's connect to 192.168.111.10,
// the watcher's interface scan, /sys/class) meets only what the target puts there. Always
// a fresh namespace, also when already inside one. Exits with the skip code (77) where
// namespaces are refused, unless LUMACAST_REQUIRE_NAMESPACES says they must work.
inline void enterPrivateNamespace(bool cameraAddress) {
    lumacast::test::enterNamespaceOrExit(/*fresh=*/true);
    if (cameraAddress && lumacast::test::runCommand("ip addr add 192.168.111.10/32 dev lo") != 0) {
        fprintf(stderr, "cannot make the camera address local\n");
        exit(1);
    }
}

// A property store of this process's own, removed at exit.
inline void usePrivateProperties() {
    static std::string dir = [] {
        char templ[] = "/tmp/lumacast-fuzz-XXXXXX";
        if (mkdtemp(templ) == nullptr) {
            perror("mkdtemp");
            exit(1);
        }
        return std::string(templ);
    }();
    setenv("LUMACAST_PROPERTY_DIR", (dir + "/properties").c_str(), 1);
    atexit([] { lumacast::test::runCommand("rm -rf '" + dir + "'"); });
}

}  // namespace lumacast::fuzz
