#include "aidl/ILumacastCallback.h"

#include "aidl/BpLumacastCallback.h"

namespace kora {
namespace lumacast {

namespace {
const ::android::StaticString16 kDescriptor(u"kora.lumacast.ILumacastCallback");
}  // namespace

const ::android::String16& ILumacastCallback::descriptor = kDescriptor;

ILumacastCallback::ILumacastCallback() {}

ILumacastCallback::~ILumacastCallback() {}

const ::android::String16& ILumacastCallback::getInterfaceDescriptor() const { return descriptor; }

::android::sp<ILumacastCallback> ILumacastCallback::asInterface(
        const ::android::sp<::android::IBinder>& binder) {
    ::android::sp<ILumacastCallback> callback;
    if (binder != nullptr) {
        callback = static_cast<ILumacastCallback*>(binder->queryLocalInterface(descriptor).get());
        if (callback == nullptr) callback = new BpLumacastCallback(binder);
    }
    return callback;
}

}  // namespace lumacast
}  // namespace kora
