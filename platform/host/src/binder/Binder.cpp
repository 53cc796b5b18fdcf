#define LOG_TAG "BBinder"

#include <binder/Binder.h>
#include <binder/IInterface.h>
#include <binder/Parcel.h>
#include <log/log.h>
#include <unistd.h>

namespace android {

namespace {

// A count followed by that many strings, as dump and shell commands carry them.
Vector<String16> readArguments(const Parcel& data) {
    const int argc = data.readInt32();
    Vector<String16> args;
    for (int i = 0; i < argc && data.dataAvail() > 0; i++) {
        const size_t before = data.dataPosition();
        args.add(data.readString16());
        // A tail shorter than a length word is never consumed; without this a huge argc
        // would keep adding empty strings until memory runs out.
        if (data.dataPosition() == before) break;
    }
    return args;
}

}  // namespace

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

void BBinder::setExtension(const sp<IBinder>& extension) {
    std::lock_guard<std::mutex> lock(mExtensionLock);
    mExtension = extension;
}

sp<IBinder> BBinder::getExtension() {
    std::lock_guard<std::mutex> lock(mExtensionLock);
    return mExtension;
}

pid_t BBinder::getDebugPid() { return getpid(); }

status_t BBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    data.setDataPosition(0);
    status_t err = NO_ERROR;
    switch (code) {
        case PING_TRANSACTION:
            err = pingBinder();
            break;
        case EXTENSION_TRANSACTION:
            err = reply != nullptr ? reply->writeStrongBinder(getExtension()) : BAD_VALUE;
            break;
        case DEBUG_PID_TRANSACTION:
            err = reply != nullptr ? reply->writeInt32(getDebugPid()) : BAD_VALUE;
            break;
        case SET_RPC_CLIENT_TRANSACTION:
            // Debug RPC servers exist only on debuggable builds; a TV runs a user build.
            err = INVALID_OPERATION;
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
            return dump(fd, readArguments(data));
        }

        case SHELL_COMMAND_TRANSACTION: {
            // No shell commands here: the result receiver is told INVALID_OPERATION and
            // the call itself succeeds, as with libbinder's BBinder.
            for (int i = 0; i < 3; i++) data.readFileDescriptor();  // in, out, err
            readArguments(data);
            sp<IBinder> shellCallback;
            sp<IBinder> resultReceiver;
            data.readNullableStrongBinder(&shellCallback);
            data.readNullableStrongBinder(&resultReceiver);
            if (resultReceiver != nullptr) {
                Parcel result;
                result.writeInterfaceToken(String16(u"com.android.internal.os.IResultReceiver"));
                result.writeInt32(INVALID_OPERATION);
                resultReceiver->transact(FIRST_CALL_TRANSACTION, result, nullptr, FLAG_ONEWAY);
            }
            return NO_ERROR;
        }

        case SYSPROPS_TRANSACTION:
            // Nothing here registers for property changes.
            return NO_ERROR;

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
