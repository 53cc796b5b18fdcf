#pragma once

#include <binder/BpBinder.h>
#include <binder/IBinder.h>
#include <binder/Parcel.h>
#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "Wire.h"

namespace android {
namespace hostbinder {

// One connection between this process and another, used both ways. Objects of this
// process that the peer holds are exported under addresses with a count of how often
// they were sent; the peer returns counts as its proxies go. Any I/O error or protocol
// violation ends the session: waiting calls fail with DEAD_OBJECT, exported objects are
// released and proxies get their obituaries.
class Session : public RefBase {
  public:
    // Takes over a connected socket, sends the greeting and starts the reader thread.
    static sp<Session> start(UniqueFd fd, const std::string& expectedPeerToken);

    status_t transact(uint64_t target, uint32_t code, const Parcel& data, Parcel* reply,
                      uint32_t flags);

    // Asks the peer's service directory for a service (null when it has none).
    status_t getService(const String16& name, sp<IBinder>* out);

    bool isAlive() const { return mAlive.load(std::memory_order_acquire); }
    std::string peerToken() const;
    pid_t peerPid() const { return mPeerPid; }

    // Runs an incoming transaction on the calling thread and sends its reply.
    void execute(Incoming&& message);
    // Runs queued one-way transactions in order until none is left.
    void drainAsync();

    // From a proxy's destructor: hands its references back to the peer.
    void onProxyDestroyed(BpBinder* proxy, uint64_t address, uint32_t count);

    ~Session() override;

  private:
    struct Export {
        sp<IBinder> binder;
        uint64_t timesSent;
    };
    struct PendingCall {
        std::condition_variable cv;
        std::deque<Incoming> inbox;
    };
    struct Outgoing {
        std::vector<uint8_t> data;
        std::vector<uint32_t> offsets;
        std::vector<int> fds;
    };

    explicit Session(UniqueFd fd);

    void readerLoop();
    bool readMessage(Incoming* message);
    bool recvExact(void* buf, size_t len, std::vector<UniqueFd>* fds);
    bool handleMessage(Incoming&& message);
    void handleRelease(const Incoming& message);
    // Turns the parcel of a transaction or reply into this process's objects.
    void receive(Incoming* message, size_t headSize, uint64_t target, uint32_t dataSize,
                 uint32_t objectCount);
    void handleDirectoryCall(Incoming&& message);
    void teardown();

    status_t sendMessage(uint32_t command, const void* head, size_t headSize,
                         const Outgoing* payload);
    status_t flattenForSend(const Parcel& parcel, Outgoing* out);
    status_t unflattenReceived(const uint8_t* data, size_t dataSize, const uint8_t* offsets,
                               size_t objectCount, std::vector<UniqueFd>* fds, Parcel* out);
    status_t parseReply(Incoming&& message, Parcel* reply);
    status_t sendReply(uint64_t callId, status_t status, const Parcel* reply);
    void fail();

    // The waiting thread's loop: runs nested calls until its reply or the end.
    status_t waitForReply(uint64_t callId, PendingCall* call, Parcel* reply);

    mutable std::mutex mLock;
    std::map<uint64_t, Export> mExports;
    std::map<IBinder*, uint64_t> mExportAddress;
    uint64_t mNextAddress = 1;
    std::map<uint64_t, wp<BpBinder>> mProxies;
    std::map<uint64_t, PendingCall*> mPending;
    uint64_t mNextCallId = 1;
    std::deque<Incoming> mAsyncQueue;
    bool mAsyncRunning = false;
    std::string mPeerToken;
    bool mHelloSeen = false;
    std::string mExpectedPeerToken;

    std::mutex mWriteLock;
    int mFd;  // written under mWriteLock, closed by teardown under it

    std::atomic<bool> mAlive{true};
    // A forked child inherits sessions it must never touch; they belong to this generation.
    const uint64_t mGeneration;
    pid_t mPeerPid = -1;
    uid_t mPeerUid = static_cast<uid_t>(-1);
};

}  // namespace hostbinder
}  // namespace android
