#pragma once

#include <binder/IBinder.h>
#include <binder/Parcel.h>
#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <vector>

#include "UniqueFd.h"

namespace android {
namespace hostbinder {

// Messages between two processes on one Unix stream socket. Each is a header and a body
// of exactly bodySize bytes; descriptors ride on the header bytes (SCM_RIGHTS).
enum Command : uint32_t {
    CMD_HELLO = 1,     // first message each way: protocol version and process token
    CMD_TRANSACT = 2,  // a call on an object of the receiver
    CMD_REPLY = 3,     // the answer to a two-way call
    CMD_RELEASE = 4,   // the sender drops references to an object of the receiver
};

struct MessageHeader {
    uint32_t command;
    uint32_t bodySize;
    uint32_t fdCount;
    uint32_t reserved;
};

// Followed by dataSize bytes of parcel data and objectCount uint32 object offsets.
struct TransactBody {
    uint64_t callId;
    // The receiver's call that this one is nested in: the thread waiting for that call
    // runs this one, as binder does for calls back into a waiting client. 0: none.
    uint64_t nestedIn;
    uint64_t target;  // the receiver's object address; 0 is the process's service directory
    uint32_t code;
    uint32_t flags;
    uint32_t dataSize;
    uint32_t objectCount;
};

// Parcel data and offsets follow only when status is OK.
struct ReplyBody {
    uint64_t callId;
    int32_t status;
    uint32_t dataSize;
    uint32_t objectCount;
    uint32_t reserved;
};

struct ReleaseBody {
    uint64_t address;
    uint32_t count;
    uint32_t reserved;
};

struct HelloBody {
    uint32_t version;
    uint32_t tokenSize;  // followed by the token's bytes
};

constexpr uint32_t kProtocolVersion = 1;
constexpr size_t kMaxTokenSize = 64;

// Same limit as a kernel binder transaction buffer (1 MiB less two pages): larger
// parcels fail with FAILED_TRANSACTION as they would on the device.
constexpr size_t kMaxTransactionData = 1024 * 1024 - 2 * 4096;
constexpr size_t kMaxObjects = kMaxTransactionData / 24;
constexpr size_t kMaxBody = sizeof(TransactBody) + kMaxTransactionData + kMaxObjects * 4;
// As the kernel allows per message (SCM_MAX_FD).
constexpr size_t kMaxFds = 253;

// The service directory's one call: String16 name in, nullable binder out.
constexpr uint32_t kGetServiceTransaction = 1;

struct Incoming {
    MessageHeader header{};
    std::vector<uint8_t> body;
    std::vector<UniqueFd> fds;
    // Filled in on arrival, in stream order with the peer's releases, so that nothing a
    // message refers to can go away before the message is handled.
    sp<IBinder> target;
    std::unique_ptr<Parcel> parcel;
    status_t error = OK;
};

}  // namespace hostbinder
}  // namespace android
