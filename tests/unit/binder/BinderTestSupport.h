#pragma once

#include <dirent.h>

#include <chrono>
#include <functional>
#include <thread>

namespace lumacast::test {

// Descriptors this process has open, to find the ones a test leaves behind.
inline size_t openFdCount() {
    size_t n = 0;
    DIR* d = opendir("/proc/self/fd");
    while (dirent* e = readdir(d)) n += e->d_name[0] != '.';
    closedir(d);
    return n;
}

// Whether pred became true within 5 s; other processes and pool threads act in their own time.
inline bool waitUntil(const std::function<bool()>& pred) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!pred()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace lumacast::test
