// The watcher's reading of "PRODUCT=vid/pid/bcd" lines, both as a line handed straight to
// isVendorInLumacastRange (in an exact-size buffer, split in place) and as the contents of
// a sysfs uevent file read by checkWhatDeviceType (any bytes, long lines, zero bytes),
// on a tmpfs over /sys/class in a private namespace.
//
// Checks: a line is accepted, and the heartbeat flag set, as a reading of both numbers
// with sscanf's "%x" says (where that reading is defined: up to seven hex digits, no
// sign); a line that cannot be split leaves the flag alone; a file without a PRODUCT line
// is never accepted; the device type is only ever VANTIR_BOTH or -1.
#include <ctype.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "fuzz/support/Check.h"
#include "fuzz/support/FuzzInput.h"
#include "fuzz/support/PrivateNamespace.h"
#include "fuzz/support/WatcherFixture.h"

namespace {

using android::lumacast::USBEventInterrupt;

constexpr const char* kUeventFile = "/sys/class/net/usb0/device/uevent";

lumacast::fuzz::CountingClient* gClient;
USBEventInterrupt* gWatcher;

// One number as sscanf "%x" reads it, when that reading is defined.
bool hexField(const char* text, unsigned int* value) {
    while (isspace(static_cast<unsigned char>(*text))) ++text;
    size_t digits = 0;
    const char* p = text;
    if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) p += 2;
    while (isxdigit(static_cast<unsigned char>(p[digits]))) ++digits;
    if (*text == '+' || *text == '-' || digits > 7) return false;
    *value = 0;
    sscanf(text, "%x", value);
    return true;
}

struct Expected {
    bool known = false;  // false where the line's reading is not defined
    bool split = false;
    bool accepted = false;
    bool keepAlive = false;
};

Expected expect(std::string line) {
    Expected e;
    char* save = nullptr;
    strtok_r(&line[0], "=", &save);
    char* value = strtok_r(nullptr, "=", &save);
    char* vidText = value != nullptr ? strtok_r(value, "/", &save) : nullptr;
    char* pidText = vidText != nullptr ? strtok_r(nullptr, "/", &save) : nullptr;
    e.split = vidText != nullptr && pidText != nullptr;
    if (!e.split) {
        e.known = true;
        return e;
    }
    unsigned int vid = 0;
    unsigned int pid = 0;
    if (!hexField(vidText, &vid) || !hexField(pidText, &pid)) return e;
    e.known = true;
    e.keepAlive =
            (vid == 0x2BC5 && pid == 0x0604) || (vid == 0x0416 && (pid == 0x5041 || pid == 0x5044));
    e.accepted = e.keepAlive || (vid == 0x1D6B && pid == 0x0102) ||
                 (vid == 0x0416 && pid >= 0x5030 && pid <= 0x5050);
    return e;
}

void checkLine(const std::string& text, bool keepAliveBefore) {
    const std::string line = text.substr(0, strnlen(text.c_str(), text.size()));
    std::unique_ptr<char[]> buf(new char[line.size() + 1]);
    memcpy(buf.get(), line.c_str(), line.size() + 1);
    gWatcher->mKeepAlive = keepAliveBefore;
    const bool accepted = gWatcher->isVendorInLumacastRange(buf.get());
    const Expected e = expect(line);
    if (!e.known) return;
    if (!e.split) {
        FUZZ_CHECK(!accepted && gWatcher->mKeepAlive == keepAliveBefore,
                   "unsplittable line accepted or flag changed");
        return;
    }
    FUZZ_CHECK(accepted == e.accepted, "line %s", accepted ? "accepted" : "refused");
    FUZZ_CHECK(gWatcher->mKeepAlive == e.keepAlive, "heartbeat flag %d",
               gWatcher->mKeepAlive.load());
}

void checkFile(const std::string& contents) {
    const int fd = open(kUeventFile, O_WRONLY | O_TRUNC | O_CREAT | O_CLOEXEC, 0644);
    FUZZ_CHECK(fd >= 0, "cannot write %s", kUeventFile);
    FUZZ_CHECK(write(fd, contents.data(), contents.size()) == static_cast<ssize_t>(contents.size()),
               "short write");
    close(fd);
    const int type = gWatcher->checkWhatDeviceType("net/usb", 0);
    FUZZ_CHECK(type == USBEventInterrupt::VANTIR_BOTH || type == -1, "device type %d", type);
    if (contents.find("PRODUCT") == std::string::npos) {
        FUZZ_CHECK(type == -1, "accepted without a PRODUCT line");
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("LUMACAST_LOG_QUIET", "1", 0);
    lumacast::fuzz::enterPrivateNamespace(false);
    // sysfs refuses new files; a tmpfs in its place holds the uevent file.
    if (mount("tmpfs", "/sys/class", "tmpfs", 0, "size=16m") != 0 ||
        lumacast::test::runCommand("mkdir -p /sys/class/net/usb0/device") != 0) {
        perror("tmpfs over /sys/class");
        exit(1);
    }
    gClient = new lumacast::fuzz::CountingClient;
    gWatcher = lumacast::fuzz::startIdleWatcher(gClient);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    lumacast::fuzz::FuzzInput in(data, size);
    const bool asFile = in.flag();
    const bool keepAlive = in.flag();
    const std::vector<uint8_t> rest = in.rest();
    const std::string text(rest.begin(), rest.end());
    if (asFile) {
        checkFile(text);
    } else {
        checkLine(text, keepAlive);
    }
    FUZZ_CHECK(gClient->adds == 0 && gClient->removes == 0, "the service was told something");
    return 0;
}
