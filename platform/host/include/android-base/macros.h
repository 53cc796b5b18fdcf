#pragma once

#include <stddef.h>

// The subset of libbase's macros that binder interface code uses.

#define DISALLOW_COPY_AND_ASSIGN(TypeName) \
    TypeName(const TypeName&) = delete;    \
    void operator=(const TypeName&) = delete

#define DISALLOW_IMPLICIT_CONSTRUCTORS(TypeName) \
    TypeName() = delete;                         \
    DISALLOW_COPY_AND_ASSIGN(TypeName)

template <typename T, size_t N>
char (&ArraySizeHelper(T (&array)[N]))[N];
#define arraysize(array) (sizeof(ArraySizeHelper(array)))

#ifndef LIKELY
#define LIKELY(exp) (__builtin_expect((exp) != 0, true))
#endif
#ifndef UNLIKELY
#define UNLIKELY(exp) (__builtin_expect((exp) != 0, false))
#endif

#define ATTRIBUTE_UNUSED __attribute__((__unused__))
#define FALLTHROUGH_INTENDED [[fallthrough]]
