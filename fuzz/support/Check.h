#pragma once

#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>

// A broken promise of the code under test: libFuzzer keeps the input that caused it, and a
// replay of that input fails the same way.
#define FUZZ_CHECK(cond, ...)                                                        \
    do {                                                                             \
        if (!(cond)) {                                                               \
            fprintf(stderr, "%s:%d: check failed: %s: ", __FILE__, __LINE__, #cond); \
            fprintf(stderr, __VA_ARGS__);                                            \
            fputc('\n', stderr);                                                     \
            abort();                                                                 \
        }                                                                            \
    } while (0)

namespace lumacast::fuzz {

// Open descriptors of this process, to catch one input leaving a descriptor behind.
inline int openDescriptorCount() {
    DIR* dir = opendir("/proc/self/fd");
    if (dir == nullptr) return -1;
    int n = 0;
    while (readdir(dir) != nullptr) ++n;
    closedir(dir);
    return n;
}

}  // namespace lumacast::fuzz
