#include <hardware_legacy/uevent.h>

#include <poll.h>
#include <string.h>

#include <string>

#include <gtest/gtest.h>

#include "tests/support/Uevent.h"

using lumacast::test::kernelUevent;
using lumacast::test::sendUevent;

namespace {

bool readable(int fd, int timeoutMs) {
    struct pollfd p = {fd, POLLIN, 0};
    return poll(&p, 1, timeoutMs) == 1 && (p.revents & POLLIN);
}

// Reads events until one whose header is `header`; gives up after `limit` events.
bool receiveHeader(const std::string& header, std::string* message, int limit = 50) {
    for (int i = 0; i < limit; ++i) {
        if (!readable(uevent_get_fd(), 5000)) return false;
        char buf[2048];
        const int n = uevent_next_event(buf, sizeof(buf));
        if (n <= 0) return false;
        if (strncmp(buf, header.c_str(), header.size() + 1) == 0) {
            message->assign(buf, static_cast<size_t>(n));
            return true;
        }
    }
    return false;
}

}  // namespace

TEST(UeventTest, InjectedMessageArrivesByteExactAndALongOneIsCutToTheCallersLength) {
    ASSERT_EQ(1, uevent_init());
    ASSERT_GE(uevent_get_fd(), 0);
    EXPECT_EQ(1, uevent_init());  // a second init keeps the same socket
    const std::string sent = kernelUevent("add", "/devices/platform/usb/video4linux/video0",
                                          "video4linux", {"MAJOR=81", "MINOR=0", "DEVNAME=video0"});
    ASSERT_TRUE(sendUevent(sent)) << strerror(errno);
    std::string got;
    ASSERT_TRUE(receiveHeader("add@/devices/platform/usb/video4linux/video0", &got));
    EXPECT_EQ(sent, got);

    ASSERT_TRUE(
            sendUevent(kernelUevent("change", "/devices/long", "misc", {std::string(1000, 'Z')})));
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(readable(uevent_get_fd(), 5000));
        char buf[256];
        memset(buf, 0x7E, sizeof(buf));
        const int n = uevent_next_event(buf, 255);
        ASSERT_LE(n, 255);
        EXPECT_EQ(0x7E, static_cast<unsigned char>(buf[255]));
        if (strncmp(buf, "change@/devices/long", 20) == 0) return;
    }
    FAIL() << "message not received";
}
