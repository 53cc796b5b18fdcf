#include "aidl/ILumacast.h"

namespace kora {
namespace lumacast {

namespace {
const ::android::StaticString16 kDescriptor(u"kora.lumacast.ILumacast");
}  // namespace

const ::android::String16& ILumacast::descriptor = kDescriptor;

ILumacast::ILumacast() {}

ILumacast::~ILumacast() {}

const ::android::String16& ILumacast::getInterfaceDescriptor() const { return descriptor; }

}  // namespace lumacast
}  // namespace kora
