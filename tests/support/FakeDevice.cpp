#include "tests/support/FakeDevice.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "tests/support/Namespace.h"
#include "tests/support/Uevent.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace lumacast::test {

namespace {

// Where the camera sits on the USB bus. Its network function (RNDIS) is the first
// interface, the video function the second, so a kernel removes the network first.
constexpr const char* kUsbDevice = "/devices/platform/soc/xhci-hcd.0/usb1/1-1";
constexpr const char* kNetInterface = "1-1:1.0";
constexpr const char* kVideoInterface = "1-1:1.2";

std::string hex(unsigned value, bool upper, int width) {
    char buf[16];
    snprintf(buf, sizeof(buf), upper ? "%0*X" : "%0*x", width, value);
    return buf;
}

std::string interfaceUevent(const UsbProduct& p, const char* driver, const char* type,
                            const char* interfaceClass, const std::string& modaliasTail) {
    return std::string("DEVTYPE=usb_interface\nDRIVER=") + driver + "\n" + productLine(p) +
           "\nTYPE=239/2/1\nINTERFACE=" + type + "\nMODALIAS=usb:v" + hex(p.vid, true, 4) + "p" +
           hex(p.pid, true, 4) + "d" + hex(p.bcdDevice, true, 4) + "dcEFdsc02dp01ic" +
           interfaceClass + modaliasTail + "\n";
}

bool writeFile(const std::string& path, const std::string& text) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    const ssize_t n = write(fd, text.data(), text.size());
    close(fd);
    return n == static_cast<ssize_t>(text.size());
}

bool makeDirs(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    return !error;
}

std::string sysfsUeventPath(const std::string& classDir, int n) {
    return "/sys/class/" + classDir + std::to_string(n) + "/device/uevent";
}

std::string videoDevpath(int n) {
    return std::string(kUsbDevice) + "/" + kVideoInterface + "/video4linux/video" +
           std::to_string(n);
}

// A character device node at `path` that behaves as `device`. A user namespace may create
// only 0:0 character nodes (overlayfs whiteouts), so one is made as the mount point and
// the device bound over it: readdir reports a character device, as for a kernel's node,
// and open and stat reach the real device. Removing it means unmounting first.
bool makeCharNode(const std::string& path, const std::string& device, std::string* why) {
    if (mknod(path.c_str(), S_IFCHR | 0666, makedev(0, 0)) != 0) {
        *why = "mknod " + path + ": " + strerror(errno);
        return false;
    }
    if (mount(device.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) != 0) {
        *why = "bind " + device + " on " + path + ": " + strerror(errno);
        unlink(path.c_str());
        return false;
    }
    return true;
}

bool removeCharNode(const std::string& path) {
    umount2(path.c_str(), MNT_DETACH);
    return unlink(path.c_str()) == 0;
}

}  // namespace

std::string productLine(const UsbProduct& product) {
    char buf[64];
    snprintf(buf, sizeof(buf), "PRODUCT=%x/%x/%x", product.vid, product.pid, product.bcdDevice);
    return buf;
}

std::string videoFunctionUevent(const UsbProduct& product) {
    return interfaceUevent(product, "uvcvideo", "14/1/0", "0E", "isc01ip00in02");
}

std::string networkFunctionUevent(const UsbProduct& product) {
    return interfaceUevent(product, "rndis_host", "224/1/3", "E0", "isc01ip03in00");
}

FakeDevice::~FakeDevice() { tearDown(); }

bool FakeDevice::setUp(std::string* why) {
    std::string reason;
    bool ok = true;
    if (mount("tmpfs", "/sys/class", "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=755") != 0) {
        reason = std::string("tmpfs over /sys/class: ") + strerror(errno);
        ok = false;
    } else {
        mSysMounted = true;
        ok = makeDirs("/sys/class/net") && makeDirs("/sys/class/video4linux") &&
             makeDirs("/sys/class/gpio");
        if (!ok) reason = std::string("/sys/class folders: ") + strerror(errno);
    }
    ok = ok && mountDev(&reason);
    ok = ok && startCamera(&reason);
    if (!ok) {
        tearDown();
        if (why != nullptr) *why = reason;
    }
    return ok;
}

bool FakeDevice::mountDev(std::string* why) {
    // The old /dev stays reachable through this descriptor once the tmpfs covers it, so
    // nothing has to be moved aside.
    const int oldDev = open("/dev", O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (oldDev < 0) {
        *why = std::string("open /dev: ") + strerror(errno);
        return false;
    }
    const std::string old = "/proc/self/fd/" + std::to_string(oldDev) + "/";
    if (mount("tmpfs", "/dev", "tmpfs", MS_NOSUID | MS_NOEXEC, "mode=755") != 0) {
        *why = std::string("tmpfs over /dev: ") + strerror(errno);
        close(oldDev);
        return false;
    }
    mDevMounted = true;
    bool ok = true;
    for (const char* node : {"null", "zero", "urandom", "random", "full", "tty"}) {
        if (!makeCharNode(std::string("/dev/") + node, old + node, why)) {
            ok = false;
            break;
        }
    }
    for (const char* dir : {"pts", "shm"}) {
        if (!ok) break;
        const std::string target = std::string("/dev/") + dir;
        if (mkdir(target.c_str(), 0755) != 0 ||
            mount((old + dir).c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
            *why = "bind " + target + ": " + strerror(errno);
            ok = false;
        }
    }
    close(oldDev);
    if (!ok) return false;
    // What shells and tools expect to find; links are not device nodes, so the daemon's
    // scan of /dev passes over them.
    symlink("/proc/self/fd", "/dev/fd");
    symlink("/proc/self/fd/0", "/dev/stdin");
    symlink("/proc/self/fd/1", "/dev/stdout");
    symlink("/proc/self/fd/2", "/dev/stderr");
    symlink("pts/ptmx", "/dev/ptmx");
    return true;
}

bool FakeDevice::startCamera(std::string* why) {
    // The child reports on this socket pair whether it has its namespace, then holds it
    // until the owner's end closes: at tearDown, or when the owner dies.
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        *why = std::string("socketpair: ") + strerror(errno);
        return false;
    }
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0) {
        *why = std::string("fork: ") + strerror(errno);
        close(pair[0]);
        close(pair[1]);
        return false;
    }
    if (pid == 0) {
        // Async-signal-safe calls only.
        close(pair[0]);
        // Never keep the owner's output pipes open.
        const int devNull = open("/dev/null", O_RDWR);
        if (devNull >= 0) {
            dup2(devNull, STDIN_FILENO);
            dup2(devNull, STDOUT_FILENO);
            dup2(devNull, STDERR_FILENO);
        }
        const char result = unshare(CLONE_NEWNET) == 0 ? 'y' : 'n';
        if (write(pair[1], &result, 1) != 1 || result != 'y') _exit(1);
        char byte;
        while (read(pair[1], &byte, 1) < 0 && errno == EINTR) {
        }
        _exit(0);
    }
    close(pair[1]);
    mHoldFd = pair[0];
    mCameraPid = pid;
    char result = 'n';
    ssize_t n;
    while ((n = read(mHoldFd, &result, 1)) < 0 && errno == EINTR) {
    }
    if (n != 1 || result != 'y') {
        *why = "camera network namespace refused";
        return false;
    }
    if (runInCamera("ip link set lo up") != 0) {
        *why = "camera loopback";
        return false;
    }
    return true;
}

void FakeDevice::tearDown() {
    while (!mNetworkFunctions.empty()) removeNetworkFunction(mNetworkFunctions.back());
    mPlugged.clear();
    mVideoNodes.clear();
    if (mHoldFd >= 0) {
        close(mHoldFd);
        mHoldFd = -1;
    }
    if (mCameraPid > 0) {
        kill(mCameraPid, SIGKILL);
        while (waitpid(mCameraPid, nullptr, 0) < 0 && errno == EINTR) {
        }
        mCameraPid = -1;
    }
    if (mDevMounted) {
        umount2("/dev", MNT_DETACH);
        mDevMounted = false;
    }
    if (mSysMounted) {
        umount2("/sys/class", MNT_DETACH);
        mSysMounted = false;
    }
}

bool FakeDevice::sendUsbUevent(const std::string& action, const std::string& devpath,
                               const std::vector<std::string>& extra) {
    return sendUevent(kernelUevent(action, devpath, "usb", extra));
}

bool FakeDevice::plug(const UsbProduct& product, int videoN, int usbN) {
    return plug(product, product, videoN, usbN);
}

bool FakeDevice::plug(const UsbProduct& video, const UsbProduct& network, int videoN, int usbN) {
    const std::string device = kUsbDevice;
    const std::string product = productLine(video).substr(strlen("PRODUCT="));
    bool ok =
            sendUsbUevent("add", device,
                          {"DEVTYPE=usb_device", "PRODUCT=" + product, "TYPE=239/2/1", "BUSNUM=001",
                           "DEVNUM=002", "DEVNAME=bus/usb/001/002", "MAJOR=189", "MINOR=1"});
    ok = ok && sendUsbUevent("add", device + "/" + kNetInterface,
                             {"DEVTYPE=usb_interface", "PRODUCT=" + product, "INTERFACE=224/1/3"});
    ok = ok && sendUsbUevent("add", device + "/" + kVideoInterface,
                             {"DEVTYPE=usb_interface", "PRODUCT=" + product, "INTERFACE=14/1/0"});
    // The video driver is loaded already; the network driver binds a moment later.
    ok = ok && addVideoFunction(videoN, videoFunctionUevent(video));
    ok = ok && sendVideoUevent("add", videoN);
    ok = ok && addNetworkFunction(usbN, networkFunctionUevent(network));
    if (ok) mPlugged.push_back(Plugged{video, network, videoN, usbN});
    return ok;
}

bool FakeDevice::unplug() {
    if (mPlugged.empty()) return false;
    const Plugged camera = mPlugged.back();
    mPlugged.pop_back();
    const std::string device = kUsbDevice;
    bool ok = removeNetworkFunction(camera.usbN);
    ok = sendUsbUevent("remove", device + "/" + kNetInterface, {"DEVTYPE=usb_interface"}) && ok;
    ok = removeVideoFunction(camera.videoN) && ok;
    ok = sendVideoUevent("remove", camera.videoN) && ok;
    ok = sendUsbUevent("remove", device + "/" + kVideoInterface, {"DEVTYPE=usb_interface"}) && ok;
    ok = sendUsbUevent("remove", device, {"DEVTYPE=usb_device"}) && ok;
    return ok;
}

bool FakeDevice::addVideoFunction(int n, const std::string& ueventText) {
    const std::string uevent = sysfsUeventPath("video4linux/video", n);
    const std::string node = "/dev/video" + std::to_string(n);
    std::string why;
    if (!makeDirs(uevent.substr(0, uevent.rfind('/'))) || !writeFile(uevent, ueventText)) {
        return false;
    }
    if (access(node.c_str(), F_OK) != 0 && !makeCharNode(node, "/dev/null", &why)) {
        ADD_FAILURE() << why;
        return false;
    }
    if (std::find(mVideoNodes.begin(), mVideoNodes.end(), n) == mVideoNodes.end()) {
        mVideoNodes.push_back(n);
    }
    return true;
}

bool FakeDevice::removeVideoFunction(int n) {
    // The kernel removes the node before it announces the removal.
    const bool ok = removeCharNode("/dev/video" + std::to_string(n));
    unlink(sysfsUeventPath("video4linux/video", n).c_str());
    mVideoNodes.erase(std::remove(mVideoNodes.begin(), mVideoNodes.end(), n), mVideoNodes.end());
    return ok;
}

bool FakeDevice::sendVideoUevent(const std::string& action, int n) {
    return sendUevent(kernelUevent(
            action, videoDevpath(n), "video4linux",
            {"MAJOR=81", "MINOR=" + std::to_string(n), "DEVNAME=video" + std::to_string(n)}));
}

bool FakeDevice::addNetworkFunction(int n, const std::string& ueventText) {
    const std::string uevent = sysfsUeventPath("net/usb", n);
    if (!makeDirs(uevent.substr(0, uevent.rfind('/'))) || !writeFile(uevent, ueventText)) {
        return false;
    }
    const std::string name = "usb" + std::to_string(n);
    const std::string peer = "cam" + std::to_string(n);
    // One queue each way, like the camera's USB network function (queues/rx-0, tx-0).
    if (runCommand("ip link add " + name + " numtxqueues 1 numrxqueues 1 type veth peer name " +
                   peer + " numtxqueues 1 numrxqueues 1 netns " + std::to_string(mCameraPid)) !=
        0) {
        unlink(uevent.c_str());
        return false;
    }
    mNetworkFunctions.push_back(n);
    return runInCamera(std::string("ip addr add ") + kCameraAddress + "/24 dev " + peer +
                       " && ip link set " + peer + " up") == 0;
}

bool FakeDevice::removeNetworkFunction(int n) {
    const bool ok = runCommand("ip link del usb" + std::to_string(n)) == 0;
    unlink(sysfsUeventPath("net/usb", n).c_str());
    mNetworkFunctions.erase(std::remove(mNetworkFunctions.begin(), mNetworkFunctions.end(), n),
                            mNetworkFunctions.end());
    return ok;
}

bool FakeDevice::writeGpio(int gpio, const std::string& text) {
    const std::string dir = "/sys/class/gpio/gpio" + std::to_string(gpio);
    return makeDirs(dir) && writeFile(dir + "/value", text);
}

int FakeDevice::runInCamera(const std::string& command) const {
    if (mCameraPid <= 0) return -1;
    return runCommand("nsenter --net=" + cameraNetns() + " -- sh -c '" + command + "'");
}

std::string FakeDevice::cameraNetns() const {
    return "/proc/" + std::to_string(mCameraPid) + "/ns/net";
}

bool runIsolated(const std::function<void()>& body) {
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0) {
        ADD_FAILURE() << "fork: " << strerror(errno);
        return false;
    }
    if (pid == 0) {
        // Without a mount namespace of its own, FakeDevice's teardown unmounts.
        std::string why;
        if (!enterFreshNetAndMountNamespaces(&why)) {
            fprintf(stderr, "runIsolated: namespaces: %s\n", why.c_str());
            fflush(nullptr);
            _exit(2);
        }
        body();
        bool ok = !::testing::Test::HasFailure();
#if defined(__SANITIZE_ADDRESS__)
        // _exit skips the leak check that a normal exit would run.
        if (__lsan_do_recoverable_leak_check() != 0) ok = false;
#endif
        fflush(nullptr);
        _exit(ok ? 0 : 1);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return false;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace lumacast::test
