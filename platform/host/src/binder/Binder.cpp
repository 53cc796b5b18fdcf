#define LOG_TAG "BBinder"

#include <binder/Binder.h>
#include <binder/IInterface.h>
#include <binder/Parcel.h>
#include <log/log.h>

namespace android {

IBinder::IBinder() {}

IBinder::~IBinder() {}

sp<IInterface> IBinder::queryLocalInterface(const String16&) { return nullptr; }

BBinder* IBinder::localBinder() { return nullptr; }

BpBinder* IBinder::remoteBinder() { return nullptr; }

BBinder::BBinder() {}

BBinder::~BBinder() {}

const String16& BBinder::getInterfaceDescriptor() const {
    static const String16* const sEmptyDescriptor = new String16();
    ALOGW("Reached BBinder::getInterfaceDescriptor (this=%p). Override?", this);
    return *sEmptyDescriptor;
}

bool BBinder::isBinderAlive() const { return true; }

status_t BBinder::pingBinder() { return NO_ERROR; }

status_t BBinder::dump(int, const Vector<String16>&) { return NO_ERROR; }

BBinder* BBinder::localBinder() { return this; }

status_t BBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    data.setDataPosition(0);
    status_t err = NO_ERROR;
    switch (code) {
        case PING_TRANSACTION:
            err = pingBinder();
            break;
        default:
            err = onTransact(code, data, reply, flags);
            break;
    }
    // The caller may be in this process and read the reply from the start.
    if (reply != nullptr) reply->setDataPosition(0);
    return err;
}

status_t BBinder::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t) {
    switch (code) {
        case INTERFACE_TRANSACTION:
            if (reply == nullptr) return BAD_VALUE;
            reply->writeString16(getInterfaceDescriptor());
            return NO_ERROR;

        case DUMP_TRANSACTION: {
            const int fd = data.readFileDescriptor();
            const int argc = data.readInt32();
            Vector<String16> args;
            for (int i = 0; i < argc && data.dataAvail() > 0; i++) {
                const size_t before = data.dataPosition();
                args.add(data.readString16());
                // A tail shorter than a length word is never consumed; without this a
                // huge argc would keep adding empty strings until memory runs out.
                if (data.dataPosition() == before) break;
            }
            return dump(fd, args);
        }

        default:
            return UNKNOWN_TRANSACTION;
    }
}

status_t BBinder::linkToDeath(const sp<DeathRecipient>&, void*, uint32_t) {
    return INVALID_OPERATION;
}

status_t BBinder::unlinkToDeath(const wp<DeathRecipient>&, void*, uint32_t, wp<DeathRecipient>*) {
    return INVALID_OPERATION;
}

BpRefBase::BpRefBase(const sp<IBinder>& o) : mRemote(o) {}

BpRefBase::~BpRefBase() {}

IInterface::IInterface() {}

IInterface::~IInterface() {}

sp<IBinder> IInterface::asBinder(const IInterface* iface) {
    if (iface == nullptr) return nullptr;
    return const_cast<IInterface*>(iface)->onAsBinder();
}

sp<IBinder> IInterface::asBinder(const sp<IInterface>& iface) {
    if (iface == nullptr) return nullptr;
    return iface->onAsBinder();
}

}  // namespace android
