#include "aidl/IKCameraMotor.h"

namespace kora {
namespace lumacast {

const ::android::String16 IKCameraMotor::descriptor(u"kora.lumacast.IKCameraMotor");

IKCameraMotor::IKCameraMotor() {}

IKCameraMotor::~IKCameraMotor() {}

const ::android::String16& IKCameraMotor::getInterfaceDescriptor() const { return descriptor; }

}  // namespace lumacast
}  // namespace kora
