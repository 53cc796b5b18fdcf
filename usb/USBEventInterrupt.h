#pragma once

#include <atomic>

#include "util/ILumacastClient.h"
#include "util/PThreadUtil.h"
#include "util/ThreadObject.h"

namespace android {
namespace lumacast {

// Watches the kernel's uevents for the USB AI camera. Once both of its functions (the video
// node and the USB network interface) carry an accepted VID/PID, it gives the interface the
// television's address, routes the camera subnet through it and tells the streaming service;
// it reports the camera's removal the same way. Everything runs on the "ThreadUEvent" thread.
class USBEventInterrupt {
public:
    class Client : public ThreadObject {
    public:
        explicit Client(USBEventInterrupt* parent) : mParent(parent) {}
        int selfProcess(void* data1, void* data2) override;

    private:
        USBEventInterrupt* mParent;
    };

    // Result of checkWhatDeviceType for a function that belongs to the camera.
    static constexpr int VANTIR_BOTH = 2;

    // `client` is not owned and must outlive this object. The watch thread starts at once
    // and scans for a camera that is already attached.
    explicit USBEventInterrupt(ILumacastClient* client);
    // Wakes the watch thread and joins it; does not wait for another uevent.
    ~USBEventInterrupt();
    USBEventInterrupt(const USBEventInterrupt&) = delete;
    USBEventInterrupt& operator=(const USBEventInterrupt&) = delete;

    // The start-up scan and the uevent loop; returns once destruction has begun.
    int onProcess(void* data1, void* data2);
    // One recognition and set-up pass.
    void checkConnectedDevice();
    // Updates the state from one uevent whose header (action@devpath) is zero-terminated.
    void parseUevent(char* msg);
    // Number behind `prefix` in the first matching entry of `dirPath` (0..14); -1 when the
    // directory cannot be read, -2 when nothing matches or the number is out of range.
    int getDeviceIdNum(const char* dirPath, const char* prefix);
    // VANTIR_BOTH when the sysfs uevent file of class path + `id` names an accepted product.
    int checkWhatDeviceType(const char* classPath, int id);
    // Judges a "PRODUCT=vid/pid/bcd" line, splitting it in place; sets mKeepAlive.
    bool isVendorInLumacastRange(char* productLine);

    // Gives the interface named `prefix` and the number `id` ("usb0") the IPv4 address
    // `ip` and brings it up.
    bool setDeviceIp(const char* prefix, int id, const char* ip);
    // Copies into `netDevName` (room for IFNAMSIZ bytes) the first interface holding the
    // television's camera-side address whose name contains "usb".
    bool getNetDevName(char* netDevName);
    // Adds the rule and the table-100 route of the camera subnet through `netDevName`,
    // which must be a plain "usbN" name.
    bool addRoute(const char* netDevName);

    // True while the recognised camera model needs the link heartbeat. Written by the
    // watch thread, read by the service's binder threads.
    std::atomic<bool> mKeepAlive;

private:
    void handleUevent(char* msg);

    ILumacastClient* mLumacastClient;
    Client* mThreadObject;
    int mVideoId;
    int mUsbId;
    bool mIsVideo;
    bool mHasTxQueue;
    int mAction;
    bool mIsNetReady;
    PThreadUtil* mThreadUEvent;
    const char* mThreadName;
    // Cleared by the destructor while the watch thread runs.
    std::atomic<bool> mIsRunning;
    std::atomic<bool> mIsStarted;
    char mUsbPath[256];
    // Signalled by the destructor so the loop need not wait for the next uevent.
    int mWakeFd;
};

}  // namespace lumacast
}  // namespace android
