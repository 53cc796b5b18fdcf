#include "aidl/IKCameraMotor.h"

namespace kora {
namespace lumacast {

namespace {
const ::android::StaticString16 kDescriptor(u"kora.lumacast.IKCameraMotor");
}  // namespace

const ::android::String16& IKCameraMotor::descriptor = kDescriptor;

IKCameraMotor::IKCameraMotor() {}

IKCameraMotor::~IKCameraMotor() {}

const ::android::String16& IKCameraMotor::getInterfaceDescriptor() const { return descriptor; }

}  // namespace lumacast
}  // namespace kora
