#pragma once

#include <ctype.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <hardware_legacy/uevent.h>
#include <lumacast/host/LogCapture.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <regex>
#include <thread>
#include <vector>

#include "tests/support/FakeDevice.h"
#include "tests/support/RecordingClient.h"
#include "usb/USBEventInterrupt.h"

namespace lumacast::test {

// What every recognition pass logs first.
constexpr const char* kPassStart = "[ORB]lumacast USBEventInterrupt::checkConnectedDevice start";
// What the watcher logs when its scan finds neither camera function.
constexpr const char* kEmptyScan =
        "lumacast USBEventInterrupt::checkConnectedDevice videoId:-2, usbId:-2 not VANTIR_BOTH";

// Every line the watcher may log, with its priority: debug for progress and expected
// refusals, error for failures and several state reports. A line that matches no format
// here fails the test too.
inline void expectWatcherLogLines(const host::LogCapture& log) {
    constexpr int D = ANDROID_LOG_DEBUG;
    constexpr int E = ANDROID_LOG_ERROR;
    static const std::pair<int, const char*> kFormats[] = {
            {D, "lumacast USBEventInterrupt create"},
            {D, "lumacast USBEventInterrupt::Client::selfProcess"},
            {E, "USBEventInterrupt::Client::selfProcess nullptr == data1 || nullptr == data2 err"},
            {E, "USBEventInterrupt::Client::selfProcess nullptr == mParent err"},
            {E, "[ORB]lumacast USBEventInterrupt::handleUevent"},
            {D, "USBEventInterrupt::handleUevent isRunning"},
            {E, "[ORB]lumacast USBEventInterrupt::parseUevent"},
            {E, "USBEventInterrupt::parseUevent %s exist"},
            {E, "USBEventInterrupt::parseUevent fopen %s failed"},
            {D, "USBEventInterrupt::handleUevent %s removed"},
            {D, "[ORB]lumacast USBEventInterrupt::checkConnectedDevice start"},
            {E,
             "lumacast USBEventInterrupt::checkConnectedDevice videoId:%d, usbId:%d not "
             "VANTIR_BOTH"},
            {E, "USBEventInterrupt::checkConnectedDevice setDeviceIp set %s%d as IP:%s failed!"},
            {D, "lumacast USBEventInterrupt::checkConnectedDevice set usb & camera ip %s"},
            {D, "USBEventInterrupt::checkConnectedDevice processCameraAdd"},
            {D, "lumacast USBEventInterrupt::getDeviceIdNum devicePath = %s"},
            {E, "lumacast USBEventInterrupt::getDeviceIdNum open dir:%s failed"},
            {E, "lumacast USBEventInterrupt::getDeviceIdNum deviceIdNum:%d err"},
            {E, "[ORB]lumacast USBEventInterrupt: deviceIdNum_str is %s"},
            {E, "lumacast USBEventInterrupt: deviceIdNum = %d"},
            {D, "lumacast USBEventInterrupt::checkWhatDeviceType path = %s"},
            {E, "USBEventInterrupt::checkWhatDeviceType fopen devId:%s failed"},
            {D, "lumacast USBEventInterrupt::checkWhatDeviceType usbPath = %s"},
            {D, "lumacast USBEventInterrupt::checkWhatDeviceType VANTIR_BOTH"},
            {D, "lumacast USBEventInterrupt::checkWhatDeviceType NOT lumacast"},
            {D, "lumacast [orb]USBEventInterrupt::isVendorInLumacastRange string split error"},
            {D,
             "lumacast [orb]USBEventInterrupt::isVendorInLumacastRange int_vid = %x, "
             "int_pid = %x"},
            {D, "lumacast USBEventInterrupt::setDeviceIp devName = %s"},
            {E, "lumacastUSBEventInterrupt::setDeviceIp socket socketFD:%d failed!"},
            {E, "lumacast USBEventInterrupt::setDeviceIp ioctl:%d failed!"},
            {D, "lumacast USBEventInterrupt::setDeviceIp finish"},
            {D, "lumacast USBEventInterrupt::getNetDevName start"},
            {E, "lumacast USBEventInterrupt::getNetDevName socket failed"},
            {E, "lumacast USBEventInterrupt::getNetDevName ioctl failed"},
            {E, "lumacast USBEventInterrupt::addRoute nullptr == netDevName err"},
            {D, "lumacast USBEventInterrupt::addRoute add route success for %s"},
            // Failures of the host's own calls and of input the kernel never gives.
            {E, "USBEventInterrupt eventfd failed!(%s,%d)"},
            {E, "~USBEventInterrupt wake write failed!(%s,%d)"},
            {E, "USBEventInterrupt::onProcess uevent_init failed"},
            {E, "USBEventInterrupt::onProcess %s failed!(%s,%d)"},
            {E, "USBEventInterrupt::onProcess uevent socket closed"},
            {E, "USBEventInterrupt::checkWhatDeviceType path too long"},
            {E, "lumacast USBEventInterrupt::setDeviceIp %s refused"},
            {E, "lumacast USBEventInterrupt::addRoute netDevName:%s refused"},
    };
    static const std::vector<std::pair<int, std::regex>> kPatterns = [] {
        std::vector<std::pair<int, std::regex>> out;
        for (const auto& [prio, format] : kFormats) {
            std::string pattern;
            for (const char* c = format; *c != '\0'; ++c) {
                if (*c == '%') {
                    while (c[1] != '\0' && isalpha(static_cast<unsigned char>(c[1])) == 0) ++c;
                    if (c[1] != '\0') ++c;
                    pattern += "[\\s\\S]*";
                } else {
                    if (strchr("[](){}.*+?^$|\\", *c) != nullptr) pattern += '\\';
                    pattern += *c;
                }
            }
            out.emplace_back(prio, std::regex(pattern, std::regex::ECMAScript));
        }
        return out;
    }();
    for (const host::LogEntry& e : log.entries()) {
        if (e.text.find("USBEventInterrupt") == std::string::npos) continue;
        const auto known = std::find_if(kPatterns.begin(), kPatterns.end(), [&](const auto& p) {
            return std::regex_match(e.text, p.second);
        });
        if (known == kPatterns.end()) {
            ADD_FAILURE() << "unknown line: " << e.text;
        } else {
            EXPECT_EQ(known->first, e.prio) << e.text;
        }
    }
}

// A USBEventInterrupt over a recording client, with its log captured. Meant for the inside
// of runIsolated: the uevent socket is opened before the watcher starts, so nothing sent
// after start() is lost, and a watcher that will not stop ends the child instead of
// hanging the suite. Link lumacast_usb to use it.
class WatcherSession {
  public:
    WatcherSession() { uevent_init(); }
    ~WatcherSession() {
        stop();
        expectWatcherLogLines(log);
    }
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

// Runs `body` in runIsolated against a watcher that found nothing on an empty fake device
// and now waits for uevents that never come, so the test thread may call into it alone.
// `prepare` runs in the child before the watcher starts.
inline void withIdleWatcher(
        const std::function<void(android::lumacast::USBEventInterrupt&, WatcherSession&)>& body,
        const std::function<void()>& prepare = {}) {
    EXPECT_TRUE(runIsolated([&] {
        FakeDevice device;
        std::string why;
        ASSERT_TRUE(device.setUp(&why)) << why;
        if (prepare) prepare();
        if (::testing::Test::HasFatalFailure()) return;
        WatcherSession session;
        session.start();
        ASSERT_TRUE(session.log.waitFor(kEmptyScan, std::chrono::seconds(10)));
        body(session.watcher(), session);
    }));
}

}  // namespace lumacast::test
