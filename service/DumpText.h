#pragma once

#include <errno.h>
#include <unistd.h>
#include <utils/Errors.h>

#include <string>

namespace android {
namespace lumacast {

// Writes a service's dump() text whole to the descriptor dumpsys handed over: a pipe takes
// it in pieces, and a signal may cut a write short.
inline status_t writeDumpText(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return n < 0 ? -errno : UNKNOWN_ERROR;
        done += static_cast<size_t>(n);
    }
    return OK;
}

}  // namespace lumacast
}  // namespace android
