// The libc entry points devsim takes over. Everything that is not a simulated device passes
// to the next definition (the sanitizer runtime or libc), so a failed open stays a failure.

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include "tools/devsim/Simulator.h"

namespace {

using namespace lumacast::devsim::internal;

template <typename Fn>
Fn next(const char* name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

#define DEFINE_NEXT(fn)                                      \
    DEVSIM_UNINSTRUMENTED decltype(&::fn) next_##fn() {      \
        static const auto real = next<decltype(&::fn)>(#fn); \
        return real;                                         \
    }

DEFINE_NEXT(open)
DEFINE_NEXT(open64)
DEFINE_NEXT(openat)
DEFINE_NEXT(openat64)
DEFINE_NEXT(close)
DEFINE_NEXT(fopen)
DEFINE_NEXT(fopen64)
DEFINE_NEXT(fdopen)
DEFINE_NEXT(usleep)
DEFINE_NEXT(sleep)
DEFINE_NEXT(nanosleep)
DEFINE_NEXT(clock_nanosleep)

// glibc declares ioctl with an unsigned long request.
using IoctlFn = int (*)(int, unsigned long, ...);
DEVSIM_UNINSTRUMENTED IoctlFn next_ioctl() {
    static const auto real = next<IoctlFn>("ioctl");
    return real;
}

DEVSIM_UNINSTRUMENTED bool needsMode(int flags) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

// The mode an open call carries only when it may create a file; never read otherwise.
DEVSIM_UNINSTRUMENTED mode_t modeArgument(int flags, va_list ap) {
    return needsMode(flags) ? static_cast<mode_t>(va_arg(ap, int)) : 0;
}

// Opens `path` as a simulated device if it names one; false leaves the call to libc.
DEVSIM_UNINSTRUMENTED bool openSimulated(const char* path, int flags, int* fd) {
    int bus = -1;
    const DeviceKind kind = classify(path, &bus);
    if (kind == DeviceKind::None) return false;
    *fd = openDevice(kind, bus, flags);
    return true;
}

// sysfs ignores O_TRUNC and cannot create files; tmpfs does both, so value files are opened
// without either, or every read through a "w+" stream would see an empty file.
FILE* openGpioValueFile(const char* path, const char* mode) {
    const bool plus = strchr(mode, '+') != nullptr;
    int flags = 0;
    const char* fdMode = nullptr;
    switch (mode[0]) {
        case 'r':
            flags = plus ? O_RDWR : O_RDONLY;
            fdMode = plus ? "r+" : "r";
            break;
        case 'w':
            flags = plus ? O_RDWR : O_WRONLY;
            fdMode = plus ? "w+" : "w";
            break;
        case 'a':
            flags = (plus ? O_RDWR : O_WRONLY) | O_APPEND;
            fdMode = plus ? "a+" : "a";
            break;
        default:
            errno = EINVAL;
            return nullptr;
    }
    if (strchr(mode, 'e') != nullptr) flags |= O_CLOEXEC;
    markDeviceThread();
    const int fd = next_open()(path, flags);
    if (fd < 0) return nullptr;
    FILE* fp = next_fdopen()(fd, fdMode);
    if (fp == nullptr) {
        const int err = errno;
        next_close()(fd);
        errno = err;
    }
    return fp;
}

DEVSIM_UNINSTRUMENTED bool pauseFor(const struct timespec* req) {
    if (!isDeviceThread()) return false;
    if (req == nullptr || req->tv_sec < 0 || req->tv_nsec < 0 || req->tv_nsec >= 1000000000L) {
        return false;
    }
    return pause(static_cast<uint64_t>(req->tv_sec) * 1000000u +
                 static_cast<uint64_t>(req->tv_nsec) / 1000u);
}

}  // namespace

namespace lumacast::devsim::internal {
// Referenced by the simulator so that linking the static library always brings these
// definitions along.
void interposerLinked() {}
}  // namespace lumacast::devsim::internal

extern "C" {

DEVSIM_UNINSTRUMENTED int open(const char* path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    const mode_t mode = modeArgument(flags, ap);
    va_end(ap);
    int fd = -1;
    if (openSimulated(path, flags, &fd)) return fd;
    return next_open()(path, flags, mode);
}

DEVSIM_UNINSTRUMENTED int open64(const char* path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    const mode_t mode = modeArgument(flags, ap);
    va_end(ap);
    int fd = -1;
    if (openSimulated(path, flags, &fd)) return fd;
    return next_open64()(path, flags, mode);
}

DEVSIM_UNINSTRUMENTED int openat(int dirfd, const char* path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    const mode_t mode = modeArgument(flags, ap);
    va_end(ap);
    int fd = -1;
    if (openSimulated(path, flags, &fd)) return fd;
    return next_openat()(dirfd, path, flags, mode);
}

DEVSIM_UNINSTRUMENTED int openat64(int dirfd, const char* path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    const mode_t mode = modeArgument(flags, ap);
    va_end(ap);
    int fd = -1;
    if (openSimulated(path, flags, &fd)) return fd;
    return next_openat64()(dirfd, path, flags, mode);
}

DEVSIM_UNINSTRUMENTED int close(int fd) {
    if (mayBeSimulated(fd)) forgetDescriptor(fd);
    return next_close()(fd);
}

DEVSIM_UNINSTRUMENTED int ioctl(int fd, unsigned long request, ...) {
    va_list ap;
    va_start(ap, request);
    void* arg = va_arg(ap, void*);
    va_end(ap);
    int result = 0;
    if (mayBeSimulated(fd) && handleIoctl(fd, request, arg, &result)) return result;
    return next_ioctl()(fd, request, arg);
}

DEVSIM_UNINSTRUMENTED FILE* fopen(const char* path, const char* mode) {
    if (mode != nullptr && isGpioValuePath(path)) return openGpioValueFile(path, mode);
    return next_fopen()(path, mode);
}

DEVSIM_UNINSTRUMENTED FILE* fopen64(const char* path, const char* mode) {
    if (mode != nullptr && isGpioValuePath(path)) return openGpioValueFile(path, mode);
    return next_fopen64()(path, mode);
}

DEVSIM_UNINSTRUMENTED int usleep(useconds_t us) {
    if (isDeviceThread() && pause(us)) return 0;
    return next_usleep()(us);
}

DEVSIM_UNINSTRUMENTED unsigned int sleep(unsigned int seconds) {
    if (isDeviceThread() && pause(static_cast<uint64_t>(seconds) * 1000000u)) return 0;
    return next_sleep()(seconds);
}

DEVSIM_UNINSTRUMENTED int nanosleep(const struct timespec* req, struct timespec* rem) {
    if (pauseFor(req)) return 0;
    return next_nanosleep()(req, rem);
}

DEVSIM_UNINSTRUMENTED int clock_nanosleep(clockid_t clock, int flags, const struct timespec* req,
                                          struct timespec* rem) {
    // Only relative pauses can be moved to the simulated clock.
    if (flags == 0 && pauseFor(req)) return 0;
    return next_clock_nanosleep()(clock, flags, req, rem);
}

}  // extern "C"
