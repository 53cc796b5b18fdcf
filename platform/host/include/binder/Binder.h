#pragma once

#include <binder/IBinder.h>

#include <atomic>
#include <mutex>

namespace android {

namespace internal {
class Stability;
}

// A binder object implemented in this process.
class BBinder : public IBinder {
  public:
    BBinder();

    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t dump(int fd, const Vector<String16>& args) override;

    // Answers PING, EXTENSION, DEBUG_PID and SET_RPC_CLIENT itself and hands everything
    // else to onTransact.
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0) final;

    // An object that extends this one's interface, handed out by EXTENSION_TRANSACTION.
    void setExtension(const sp<IBinder>& extension);
    sp<IBinder> getExtension();

    pid_t getDebugPid();

    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) final;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) final;

    BBinder* localBinder() override;

  protected:
    ~BBinder() override;

    // Answers INTERFACE, DUMP, SHELL_COMMAND and SYSPROPS; UNKNOWN_TRANSACTION otherwise.
    virtual status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                uint32_t flags = 0);

  private:
    friend class internal::Stability;
    BBinder(const BBinder&) = delete;
    BBinder& operator=(const BBinder&) = delete;

    std::atomic<int32_t> mStability{0};
    std::mutex mExtensionLock;
    sp<IBinder> mExtension;
};

// Base of the proxies: holds the strong reference to the remote binder.
class BpRefBase : public virtual RefBase {
  protected:
    explicit BpRefBase(const sp<IBinder>& o);
    ~BpRefBase() override;

    IBinder* remote() const { return mRemote.get(); }
    sp<IBinder> remoteStrong() const { return mRemote; }

  private:
    BpRefBase(const BpRefBase&) = delete;
    BpRefBase& operator=(const BpRefBase&) = delete;

    const sp<IBinder> mRemote;
};

}  // namespace android
