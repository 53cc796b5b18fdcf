#include "aidl/ILumacast.h"

namespace kora {
namespace lumacast {

const ::android::String16 ILumacast::descriptor(u"kora.lumacast.ILumacast");

ILumacast::ILumacast() {}

ILumacast::~ILumacast() {}

const ::android::String16& ILumacast::getInterfaceDescriptor() const { return descriptor; }

}  // namespace lumacast
}  // namespace kora
