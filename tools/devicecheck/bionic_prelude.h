#pragma once

// Included before every source the device-header check compiles. It makes glibc look like
// the device's C library where that matters to a syntax check.

// AOSP's binder headers use std::unique_ptr and std::numeric_limits without including
// their headers; libc++ on the device reaches them transitively, libstdc++ does not.
#ifdef __cplusplus
#include <limits>
#include <memory>
#endif

// The redeclarations below must follow glibc's own.
#include <pthread.h>
#include <stddef.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <ucontext.h>
#include <unistd.h>

// glibc functions that bionic (API 31) lacks: a product source that calls one fails here
// instead of at link time in the platform build.
#define LUMACAST_NOT_IN_BIONIC __attribute__((unavailable("not in the device's C library")))
#ifdef __cplusplus
extern "C" {
#endif
// Thread cancellation and robust mutexes.
int pthread_cancel(pthread_t) LUMACAST_NOT_IN_BIONIC;
int pthread_setcancelstate(int, int*) LUMACAST_NOT_IN_BIONIC;
int pthread_setcanceltype(int, int*) LUMACAST_NOT_IN_BIONIC;
void pthread_testcancel(void) LUMACAST_NOT_IN_BIONIC;
int pthread_mutexattr_setrobust(pthread_mutexattr_t*, int) LUMACAST_NOT_IN_BIONIC;
int pthread_mutex_consistent(pthread_mutex_t*) LUMACAST_NOT_IN_BIONIC;
// User contexts: bionic has the types only.
int getcontext(ucontext_t*) LUMACAST_NOT_IN_BIONIC;
int setcontext(const ucontext_t*) LUMACAST_NOT_IN_BIONIC;
void makecontext(ucontext_t*, void (*)(), int, ...) LUMACAST_NOT_IN_BIONIC;
int swapcontext(ucontext_t*, const ucontext_t*) LUMACAST_NOT_IN_BIONIC;
// Obsolete or refused by the platform's SELinux policy.
int shm_open(const char*, int, mode_t) LUMACAST_NOT_IN_BIONIC;
int shm_unlink(const char*) LUMACAST_NOT_IN_BIONIC;
long gethostid(void) LUMACAST_NOT_IN_BIONIC;
size_t confstr(int, char*, size_t) LUMACAST_NOT_IN_BIONIC;
int sockatmark(int) LUMACAST_NOT_IN_BIONIC;
#ifdef __cplusplus
}
#endif
#undef LUMACAST_NOT_IN_BIONIC
