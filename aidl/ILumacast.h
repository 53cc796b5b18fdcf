#pragma once

#include <binder/IBinder.h>
#include <binder/IInterface.h>
#include <binder/Status.h>
#include <stdint.h>
#include <utils/StrongPointer.h>

#include <string>

#include "aidl/ILumacastCallback.h"

namespace kora {
namespace lumacast {

// The streaming service "lumacastservice": listeners and camera commands. Every
// operation gives its result through its last parameter.
class ILumacast : public ::android::IInterface {
  public:
    // Constant data: valid before any static constructor runs, in this file or another.
    static const ::android::String16& descriptor;

    ILumacast();
    ~ILumacast() override;

    virtual const ::android::String16& getInterfaceDescriptor() const;
    virtual ::android::binder::Status setCallback(const ::android::sp<ILumacastCallback>& callback,
                                                  bool* result) = 0;
    virtual ::android::binder::Status removeCallback(
            const ::android::sp<ILumacastCallback>& callback, bool* result) = 0;
    virtual ::android::binder::Status setZoomSwitch(bool on, bool* result) = 0;
    virtual ::android::binder::Status getZoomSwitch(bool* on) = 0;
    virtual ::android::binder::Status getAiAlgoList(int32_t* list) = 0;
    virtual ::android::binder::Status setAiSubscribeType(int32_t type, bool* result) = 0;
    virtual ::android::binder::Status getAiSubscribeStatus(int32_t* status) = 0;
    virtual ::android::binder::Status setAiProperty(const std::string& param, bool* result) = 0;
    virtual ::android::binder::Status getAiProperty(const std::string& param,
                                                    std::string* value) = 0;
    virtual ::android::binder::Status setAiSubscribe(int32_t param, const std::string& option,
                                                     bool* result) = 0;
    virtual ::android::binder::Status getAiSubscribe(std::string* value) = 0;
    virtual ::android::binder::Status grabFrame(int32_t format, const std::string& resolution,
                                                bool* result) = 0;
    virtual ::android::binder::Status sendDoa(const std::string& data, bool* result) = 0;
    virtual ::android::binder::Status setAutoFraming(int32_t param, bool* result) = 0;
    virtual ::android::binder::Status getAutoFraming(bool* on) = 0;
    virtual ::android::binder::Status setZoomMode(int32_t param, int32_t mode, bool* result) = 0;
    virtual ::android::binder::Status getZoomMode(std::string* value) = 0;
};

}  // namespace lumacast
}  // namespace kora
