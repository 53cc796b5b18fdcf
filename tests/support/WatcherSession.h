#pragma once

#include <errno.h>
#include <hardware_legacy/uevent.h>
#include <lumacast/host/LogCapture.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "tests/support/RecordingClient.h"
#include "usb/USBEventInterrupt.h"

namespace lumacast::test {

// What the watcher logs when its scan finds neither camera function.
constexpr const char* kEmptyScan =
        "lumacast USBEventInterrupt::checkConnectedDevice videoId:-2, usbId:-2 not VANTIR_BOTH";

// A USBEventInterrupt over a recording client, with its log captured. Meant for the inside
// of runIsolated: the uevent socket is opened before the watcher starts, so nothing sent
// after start() is lost, and a watcher that will not stop ends the child instead of
// hanging the suite. Link lumacast_usb to use it.
class WatcherSession {
  public:
    WatcherSession() { uevent_init(); }
    ~WatcherSession() { stop(); }
    WatcherSession(const WatcherSession&) = delete;
    WatcherSession& operator=(const WatcherSession&) = delete;

    void start() { mWatcher = std::make_unique<android::lumacast::USBEventInterrupt>(&client); }
    android::lumacast::USBEventInterrupt& watcher() { return *mWatcher; }

    // Destroys the watcher; true when that took less than `limit`.
    bool stop(std::chrono::milliseconds limit = std::chrono::seconds(5)) {
        if (!mWatcher) return true;
        auto done = std::async(std::launch::async, [this] { mWatcher.reset(); });
        if (done.wait_for(limit) == std::future_status::ready) return true;
        fprintf(stderr, "USBEventInterrupt destruction still blocked after %lld ms\n",
                static_cast<long long>(limit.count()));
        fflush(nullptr);
        _exit(3);
    }

    // Waits until every uevent sent so far has been handled: nothing is left on the socket
    // and the watcher has logged nothing for a while (a pass logs at least every 200 ms).
    bool settle(std::chrono::milliseconds quiet = std::chrono::milliseconds(500),
                std::chrono::seconds limit = std::chrono::seconds(20)) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        size_t lastCount = log.entries().size();
        auto lastChange = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            const size_t n = log.entries().size();
            const auto now = std::chrono::steady_clock::now();
            if (n != lastCount || queued()) {
                lastCount = n;
                lastChange = now;
            } else if (now - lastChange >= quiet) {
                return true;
            }
        }
        return false;
    }

    host::LogCapture log;
    RecordingClient client;

  private:
    static bool queued() {
        char byte;
        const ssize_t n = recv(uevent_get_fd(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
        return n >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
    }

    std::unique_ptr<android::lumacast::USBEventInterrupt> mWatcher;
};

}  // namespace lumacast::test
