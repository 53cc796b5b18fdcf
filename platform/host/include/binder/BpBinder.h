#pragma once

#include <binder/IBinder.h>

#include <atomic>
#include <mutex>
#include <vector>

namespace android {

namespace hostbinder {
class Session;
}
namespace internal {
class Stability;
}

// A reference to a binder object of another process, reached through the session that
// brought it here. When that session ends, every call fails with DEAD_OBJECT.
class BpBinder : public IBinder {
  public:
    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t dump(int fd, const Vector<String16>& args) override;

    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0) final;

    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) override;

    BpBinder* remoteBinder() override;

    // Tells every linked recipient, once, that the remote object is gone.
    void sendObituary();

  protected:
    ~BpBinder() override;

  private:
    friend class hostbinder::Session;
    friend class internal::Stability;

    // Recipients are held weakly, as libbinder does: one that is gone is not told.
    struct Obituary {
        wp<DeathRecipient> recipient;
        void* cookie;
        uint32_t flags;
    };

    BpBinder(const sp<hostbinder::Session>& session, uint64_t address);
    BpBinder(const BpBinder&) = delete;
    BpBinder& operator=(const BpBinder&) = delete;

    const sp<hostbinder::Session> mSession;
    const uint64_t mAddress;
    // How many times the peer has sent us this reference; returned to it when we go.
    // Guarded by the session's lock.
    uint32_t mTimesRecd = 0;

    mutable std::mutex mLock;
    mutable String16 mDescriptorCache;
    std::vector<Obituary> mObituaries;
    bool mObitsSent = false;

    std::atomic<int32_t> mStability{0};
};

}  // namespace android
