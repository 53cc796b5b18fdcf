// Preloaded into lumacastd by the soak: the daemon has no orderly exit (the platform kills
// it), so nothing would ever check it for leaks. SIGUSR2 makes it check itself while it
// runs, as an exit would, and end: exit status 23 when LeakSanitizer found leaks, 0
// otherwise (also in builds without LeakSanitizer). Host-only test tooling.
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));

namespace {

void* waitForRequest(void*) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    int sig = 0;
    while (sigwait(&set, &sig) != 0) {
    }
    const int leaks =
            __lsan_do_recoverable_leak_check != nullptr ? __lsan_do_recoverable_leak_check() : 0;
    _exit(leaks != 0 ? 23 : 0);
}

__attribute__((constructor)) void start() {
    // Blocked before the daemon starts any thread, so every thread inherits the block and
    // only the waiter takes the signal.
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    // The sanitizer has read its options already; the programs the daemon runs (ip) get
    // the runtime preloaded too, and must not fail on leaks of their own.
    if (const char* options = getenv("ASAN_OPTIONS")) {
        const std::string children = std::string(options) + ":detect_leaks=0";
        setenv("ASAN_OPTIONS", children.c_str(), 1);
    }
    pthread_t thread;
    if (pthread_create(&thread, nullptr, waitForRequest, nullptr) == 0) pthread_detach(thread);
}

}  // namespace
