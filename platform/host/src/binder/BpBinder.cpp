#define LOG_TAG "BpBinder"

#include <binder/BpBinder.h>
#include <binder/Parcel.h>
#include <log/log.h>

#include "Session.h"

namespace android {

BpBinder::BpBinder(const sp<hostbinder::Session>& session, uint64_t address)
    : mSession(session), mAddress(address) {}

BpBinder::~BpBinder() { mSession->onProxyDestroyed(this, mAddress, 0); }

const String16& BpBinder::getInterfaceDescriptor() const {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (!mDescriptorCache.empty()) return mDescriptorCache;
    }
    Parcel data;
    Parcel reply;
    // The call runs without the lock held; the first answer wins.
    const status_t err = const_cast<BpBinder*>(this)->transact(INTERFACE_TRANSACTION, data, &reply);
    std::lock_guard<std::mutex> lock(mLock);
    if (err == NO_ERROR && mDescriptorCache.empty()) mDescriptorCache = reply.readString16();
    return mDescriptorCache;
}

bool BpBinder::isBinderAlive() const { return mSession->isAlive(); }

status_t BpBinder::pingBinder() {
    Parcel data;
    Parcel reply;
    return transact(PING_TRANSACTION, data, &reply);
}

status_t BpBinder::dump(int fd, const Vector<String16>& args) {
    Parcel send;
    Parcel reply;
    status_t err = send.writeFileDescriptor(fd);
    if (err != OK) return err;
    err = send.writeInt32(static_cast<int32_t>(args.size()));
    for (size_t i = 0; err == OK && i < args.size(); i++) err = send.writeString16(args[i]);
    if (err != OK) return err;
    return transact(DUMP_TRANSACTION, send, &reply);
}

status_t BpBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    return mSession->transact(mAddress, code, data, reply, flags);
}

status_t BpBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie, uint32_t flags) {
    if (recipient == nullptr) return BAD_VALUE;
    std::lock_guard<std::mutex> lock(mLock);
    if (mObitsSent || !mSession->isAlive()) return DEAD_OBJECT;
    mObituaries.push_back({recipient, cookie, flags});
    return NO_ERROR;
}

status_t BpBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie, uint32_t flags,
                                 wp<DeathRecipient>* outRecipient) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mObitsSent) return DEAD_OBJECT;
    for (auto it = mObituaries.begin(); it != mObituaries.end(); ++it) {
        // By recipient, or by cookie when no recipient is given; flags must match.
        const bool byCookie = recipient.unsafe_get() == nullptr && it->cookie == cookie;
        if ((it->recipient == recipient || byCookie) && it->flags == flags) {
            if (outRecipient != nullptr) *outRecipient = it->recipient;
            mObituaries.erase(it);
            return NO_ERROR;
        }
    }
    return NAME_NOT_FOUND;
}

void BpBinder::sendObituary() {
    std::vector<Obituary> obits;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mObitsSent) return;
        mObitsSent = true;
        obits.swap(mObituaries);
    }
    const wp<IBinder> who(this);
    for (const Obituary& o : obits) {
        if (const sp<DeathRecipient> recipient = o.recipient.promote()) recipient->binderDied(who);
    }
}

BpBinder* BpBinder::remoteBinder() { return this; }

}  // namespace android
