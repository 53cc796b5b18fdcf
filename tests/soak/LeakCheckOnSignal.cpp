// Preloaded into lumacastd by the soak: the daemon has no orderly exit (the platform kills
// it), so nothing would ever check it for leaks. SIGUSR2 makes it check itself while it
// runs, as an exit would, and end: exit status 23 when LeakSanitizer found leaks, 0
// otherwise (also in builds without LeakSanitizer). SIGUSR1 makes it write the bytes its
// heap holds live to $SOAK_HEAP_FILE: resident memory also counts what the allocator and
// the sanitizer keep cached, so memory still reachable but growing (a queue nobody drains,
// a listener never dropped) shows only here. Host-only test tooling.
#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));
extern "C" size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));
extern "C" void __sanitizer_print_memory_profile(size_t top_percent, size_t max_contexts)
        __attribute__((weak));

namespace {

size_t liveHeapBytes() {
    if (__sanitizer_get_current_allocated_bytes != nullptr) {
        return __sanitizer_get_current_allocated_bytes();
    }
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void writeHeapFile() {
    const char* path = getenv("SOAK_HEAP_FILE");
    if (path == nullptr) return;
    const std::string tmp = std::string(path) + ".tmp";
    const int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return;
    char line[32];
    const int n = snprintf(line, sizeof line, "%zu\n", liveHeapBytes());
    const bool written = n > 0 && write(fd, line, static_cast<size_t>(n)) == n;
    close(fd);
    // Renamed whole, so a reader never sees half a number.
    if (written) rename(tmp.c_str(), path);
    // Where the live heap is, into the daemon's log, for a soak that finds it grown.
    if (getenv("SOAK_HEAP_PROFILE") != nullptr && __sanitizer_print_memory_profile != nullptr) {
        __sanitizer_print_memory_profile(90, 12);
    }
}

void* waitForRequests(void*) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    sigaddset(&set, SIGUSR2);
    for (;;) {
        int sig = 0;
        if (sigwait(&set, &sig) != 0) continue;
        if (sig == SIGUSR1) {
            writeHeapFile();
            continue;
        }
        const int leaks = __lsan_do_recoverable_leak_check != nullptr
                                  ? __lsan_do_recoverable_leak_check()
                                  : 0;
        _exit(leaks != 0 ? 23 : 0);
    }
}

__attribute__((constructor)) void start() {
    // Blocked before the daemon starts any thread, so every thread inherits the block and
    // only the waiter takes the signals.
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    sigaddset(&set, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    // The sanitizer has read its options already; the programs the daemon runs (ip) get
    // the runtime preloaded too, and must not fail on leaks of their own.
    const char* options = getenv("ASAN_OPTIONS");
    const std::string children =
            options != nullptr ? std::string(options) + ":detect_leaks=0" : "detect_leaks=0";
    setenv("ASAN_OPTIONS", children.c_str(), 1);
    pthread_t thread;
    if (pthread_create(&thread, nullptr, waitForRequests, nullptr) == 0) pthread_detach(thread);
}

}  // namespace
