#pragma once

#include <binder/IBinder.h>
#include <stdint.h>

namespace lumacast::test {

// Calls that the peer's test service understands.
enum PeerCode : uint32_t {
    kAddOne = android::IBinder::FIRST_CALL_TRANSACTION,  // int32 -> int32 + 1
    kCallBackNested,  // binder, int32 n -> calls the binder with n while serving, its answer
    kHoldCallback,    // binder -> kept
    kFireHeld,        // int32 n -> calls every kept binder n times from a fresh thread
    kDropHeld,        // forgets the kept binders
    kReturnBinders,   // binder -> that binder, then a new object of the peer
    kSleepMs,         // int32 ms
    kExitNow,         // the peer exits without answering
    kBytes,           // int32 n -> byte vector of n bytes (i & 0xff)
    kCallingPid,      // -> int32 pid of the caller as the peer sees it
    kHeldCount,       // -> int32 number of kept binders
    kPositiveResult,  // -> int32 7, and onTransact returns 1
};

// What a test's own callback object answers: the int32 sent, doubled.
constexpr uint32_t kCallbackCode = android::IBinder::FIRST_CALL_TRANSACTION;

}  // namespace lumacast::test
