#pragma once

// STAND-IN, to be deleted when the USB camera watcher (usb/USBEventInterrupt.h) is on
// main: the streaming service builds against this only while the lumacast_usb library does
// not exist. It watches nothing; it only has the flag the service reads.

#include <atomic>

#include "service/ILumacastClient.h"

namespace android {
namespace lumacast {

class USBEventInterrupt {
  public:
    explicit USBEventInterrupt(ILumacastClient*) : mKeepAlive(false) {}
    USBEventInterrupt(const USBEventInterrupt&) = delete;
    USBEventInterrupt& operator=(const USBEventInterrupt&) = delete;

    std::atomic<bool> mKeepAlive;
};

}  // namespace lumacast
}  // namespace android
