#pragma once

#include <binder/IBinder.h>
#include <binder/IInterface.h>
#include <binder/Status.h>
#include <stdint.h>
#include <utils/StrongPointer.h>

#include <string>
#include <vector>

namespace kora {
namespace lumacast {

// What the streaming service pushes to each listener: AI results as JSON text or as
// protobuf bytes, and frame blocks. Listeners live in other processes.
class ILumacastCallback : public ::android::IInterface {
  public:
    // Constant data: valid before any static constructor runs, in this file or another.
    static const ::android::String16& descriptor;
    // The listener itself when it lives here, otherwise a proxy over the binder.
    static ::android::sp<ILumacastCallback> asInterface(
            const ::android::sp<::android::IBinder>& binder);

    ILumacastCallback();
    ~ILumacastCallback() override;

    virtual const ::android::String16& getInterfaceDescriptor() const;
    virtual ::android::binder::Status onAiData(const std::string& data) = 0;
    virtual ::android::binder::Status onProtoBuf(const std::vector<uint8_t>& data) = 0;
    virtual ::android::binder::Status onFrame(int32_t blockCount, int32_t blockParam,
                                              const std::vector<uint8_t>& data) = 0;
};

}  // namespace lumacast
}  // namespace kora
