// The watcher's reading of uevent headers. Each input is a run of headers, one per line,
// handed to parseUevent in exact-size buffers (so a read past a header's end is caught),
// starting from the state a camera removal leaves. The watcher lives in a private
// namespace with no camera, so no header can lead to network set-up.
//
// Checks: the camera is reported gone exactly when a header names a video node (one digit
// or character after "video4linux/video" giving 0..14) while the last action named was a
// removal, and never reported added.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>

#include "fuzz/support/Check.h"
#include "fuzz/support/PrivateNamespace.h"
#include "fuzz/support/WatcherFixture.h"

namespace {

lumacast::fuzz::CountingClient* gClient;
android::lumacast::USBEventInterrupt* gWatcher;

void parse(const std::string& header) {
    std::unique_ptr<char[]> buf(new char[header.size() + 1]);
    memcpy(buf.get(), header.data(), header.size());
    buf[header.size()] = '\0';
    gWatcher->parseUevent(buf.get());
}

// The removal a header should cause, given the action left by the headers before it.
bool expectRemoval(const char* header, int* action) {
    if (strstr(header, "add@") != nullptr) *action = 1;
    if (strstr(header, "remove@") != nullptr) *action = 2;
    const char* video = strstr(header, "video4linux/video");
    if (video == nullptr) return false;
    const char next = video[strlen("video4linux/video")];
    if (next == '\0') return false;
    const int id = next - '0';
    return id >= 0 && id <= 14 && *action == 2;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("LUMACAST_LOG_QUIET", "1", 0);
    lumacast::fuzz::enterPrivateNamespace(false);
    gClient = new lumacast::fuzz::CountingClient;
    gWatcher = lumacast::fuzz::startIdleWatcher(gClient);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Every input starts where a removal leaves the watcher: no camera, last action remove.
    parse("remove@/devices/platform/usb/video4linux/video0");
    int action = 2;
    const std::string input(reinterpret_cast<const char*>(data), size);
    size_t start = 0;
    for (int i = 0; i < 16 && start <= input.size(); ++i) {
        size_t end = input.find('\n', start);
        if (end == std::string::npos) end = input.size();
        // The watcher reads headers of up to 255 bytes.
        const std::string header = input.substr(start, std::min<size_t>(end - start, 255));
        const int before = gClient->removes;
        parse(header);
        const int removed = gClient->removes - before;
        const bool expected = expectRemoval(header.c_str(), &action);
        FUZZ_CHECK(removed == (expected ? 1 : 0), "header %d: %d removals, %d expected", i, removed,
                   expected ? 1 : 0);
        start = end + 1;
    }
    FUZZ_CHECK(gClient->adds == 0, "camera reported added");
    return 0;
}
