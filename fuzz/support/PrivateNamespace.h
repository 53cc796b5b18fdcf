#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include <string>

#include "socket/CameraProtocol.h"
#include "tests/support/Namespace.h"

namespace lumacast::fuzz {

// Moves the fuzzer into a user + mount + network namespace of its own before it starts
// any thread, so the daemon code it drives (the camera link's connect to 192.168.111.10,
// the watcher's interface scan, /sys/class) meets only what the target puts there. Always
// a fresh namespace, also when already inside one. Exits with the skip code (77) where
// namespaces are refused, unless LUMACAST_REQUIRE_NAMESPACES says they must work.
inline void enterPrivateNamespace(bool cameraAddress) {
    lumacast::test::enterNamespaceOrExit(/*fresh=*/true);
    if (cameraAddress && !lumacast::test::putCameraAddressOnLoopback()) {
        fprintf(stderr, "cannot make the camera address local\n");
        exit(1);
    }
}

// A listening socket on the camera's address and port (put on loopback by
// enterPrivateNamespace(true)), for a stand-in camera that the link connects to.
inline int listenAsCamera() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(android::lumacast::CAMERA_PORT);
    inet_pton(AF_INET, android::lumacast::CAMERA_ADDRESS, &addr.sin_addr);
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
        listen(fd, 4) != 0) {
        perror("camera stand-in");
        exit(1);
    }
    return fd;
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
