#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace lumacast::test {

// USB identifiers as the kernel prints them after "PRODUCT=".
struct UsbProduct {
    unsigned vid;
    unsigned pid;
    unsigned bcdDevice;
};

// A camera model the daemon accepts (and which needs the link heartbeat), and an ordinary
// webcam it refuses.
constexpr UsbProduct kAcceptedCamera{0x2BC5, 0x0604, 0x0100};
constexpr UsbProduct kRefusedCamera{0x046D, 0x0825, 0x0012};

// "PRODUCT=2bc5/604/100": lower-case hex without leading zeros, as the kernel writes it.
std::string productLine(const UsbProduct& product);
// The uevent file of the USB interface behind a video node or a network interface.
std::string videoFunctionUevent(const UsbProduct& product);
std::string networkFunctionUevent(const UsbProduct& product);

// The television around the daemon, built inside the caller's own mount and network
// namespaces (see runIsolated; a NAMESPACE test program also qualifies):
// - /sys/class is a tmpfs holding net/usbN/device/uevent, video4linux/videoN/device/uevent
//   and gpio/gpioNNN/value files;
// - /dev is a tmpfs keeping null, zero, urandom, random, full, tty, pts and shm by bind
//   mounts, with /dev/videoN as character device nodes (behaving as /dev/null);
// - the camera's network function is a veth pair: usbN on the "tv" side (the caller's
//   namespace), its peer camN in a "camera" network namespace holding 192.168.111.10/24.
// Creating and deleting the veth makes the kernel itself send the net/usbN uevents; the
// video node's uevents are sent in kernel format. Teardown undoes everything; when the
// owning process dies, its namespaces and the camera namespace vanish with it.
class FakeDevice {
  public:
    static constexpr const char* kCameraAddress = "192.168.111.10";

    FakeDevice() = default;
    ~FakeDevice();
    FakeDevice(const FakeDevice&) = delete;
    FakeDevice& operator=(const FakeDevice&) = delete;

    // Mounts the file systems and starts the camera namespace. False (and why) on failure,
    // with whatever was done already undone.
    bool setUp(std::string* why);
    void tearDown();

    // A whole camera, in the order a kernel announces it: the USB device and its
    // interfaces, the video node, then the network interface and its queues. `video` and
    // `network` are the products the two functions report.
    bool plug(const UsbProduct& product, int videoN = 0, int usbN = 0);
    bool plug(const UsbProduct& video, const UsbProduct& network, int videoN, int usbN);
    // Removes the camera plugged last, in the kernel's order: the network function (its
    // queues, then the interface), then the video node, then the USB device.
    bool unplug();

    // The single steps, for tests that need another order or a partial device.
    bool addVideoFunction(int n, const std::string& ueventText);  // sysfs file and node only
    bool removeVideoFunction(int n);                              // sysfs file and node only
    bool sendVideoUevent(const std::string& action, int n);
    // The sysfs file, then the veth (the kernel sends its add uevents).
    bool addNetworkFunction(int n, const std::string& ueventText);
    // The veth (the kernel sends its remove uevents), then the sysfs file.
    bool removeNetworkFunction(int n);

    // /sys/class/gpio/gpioNNN/value.
    bool writeGpio(int gpio, const std::string& text);

    // Runs a shell command (no single quotes) in the camera namespace; its exit status, or -1.
    int runInCamera(const std::string& command) const;
    // For nsenter/setns: "/proc/PID/ns/net" of the camera namespace.
    std::string cameraNetns() const;

  private:
    bool mountDev(std::string* why);
    bool startCamera(std::string* why);
    bool sendUsbUevent(const std::string& action, const std::string& devpath,
                       const std::vector<std::string>& extra);

    bool mSysMounted = false;
    bool mDevMounted = false;
    pid_t mCameraPid = -1;
    int mHoldFd = -1;  // the camera namespace lives while this is open
    std::vector<int> mVideoNodes;
    std::vector<int> mNetworkFunctions;
    struct Plugged {
        UsbProduct video;
        UsbProduct network;
        int videoN;
        int usbN;
    };
    std::vector<Plugged> mPlugged;
};

// Runs `body` in a forked child that has fresh network and mount namespaces of its own, so
// a FakeDevice, interfaces, rules and routes made there vanish with it and never meet
// another test's. (Under an emulator that runs threads of its own the kernel refuses the
// mount namespace; the child then relies on FakeDevice's teardown for its mounts.) gtest
// assertions work inside `body`; true when the child ran it without a failure (and, under
// ASan, without a leak). The calling process must not have opened the uevent socket: the
// child's would stay bound to the parent's namespace.
bool runIsolated(const std::function<void()>& body);

}  // namespace lumacast::test
