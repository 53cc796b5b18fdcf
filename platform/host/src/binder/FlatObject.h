#pragma once

#include <binder/IBinder.h>
#include <stdint.h>
#include <string.h>

namespace android {
namespace hostbinder {

// The 24-byte object that stands for a binder or a file descriptor inside parcel data,
// laid out as the kernel's flat_binder_object on a 64-bit binder ABI.
struct FlatObject {
    uint32_t type;
    uint32_t flags;
    uint64_t binder;  // a handle or a descriptor uses the low 32 bits
    uint64_t cookie;
};
static_assert(sizeof(FlatObject) == 24, "flat objects are 24 bytes on the wire");

constexpr uint32_t BINDER_TYPE_BINDER = B_PACK_CHARS('s', 'b', '*', 0x85);
constexpr uint32_t BINDER_TYPE_HANDLE = B_PACK_CHARS('s', 'h', '*', 0x85);
constexpr uint32_t BINDER_TYPE_FD = B_PACK_CHARS('f', 'd', '*', 0x85);

constexpr uint32_t FLAT_BINDER_FLAG_ACCEPTS_FDS = 0x100;
// SCHED_NORMAL at nice 19, what libbinder puts on every binder object by default.
constexpr uint32_t kBinderObjectFlags = FLAT_BINDER_FLAG_ACCEPTS_FDS | 0x13;
constexpr uint32_t kFdObjectFlags = FLAT_BINDER_FLAG_ACCEPTS_FDS | 0x7f;

inline FlatObject loadFlat(const uint8_t* p) {
    FlatObject f;
    memcpy(&f, p, sizeof(f));
    return f;
}

inline void storeFlat(uint8_t* p, const FlatObject& f) { memcpy(p, &f, sizeof(f)); }

}  // namespace hostbinder
}  // namespace android
