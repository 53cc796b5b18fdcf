#define LOG_TAG "lumacastservice"

#include "usb/USBEventInterrupt.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <hardware_legacy/uevent.h>
#include <limits.h>
#include <log/log.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>

namespace android {
namespace lumacast {

namespace {

constexpr const char* kAddMarker = "add@";
constexpr const char* kRemoveMarker = "remove@";
constexpr const char* kVideoClassPath = "video4linux/video";
constexpr const char* kNetClassPath = "net/usb";
constexpr const char* kTxQueueMarker = "queues/tx";
constexpr const char* kDevDir = "/dev/";
constexpr const char* kVideoPrefix = "video";
constexpr const char* kNetDevDir = "/proc/net/dev_snmp6/";
constexpr const char* kUsbPrefix = "usb";
constexpr const char* kUeventPathFormat = "/sys/class/%s%d/device/uevent";
constexpr const char* kProductKey = "PRODUCT";
constexpr const char* kCameraHostIp = "192.168.111.3";
constexpr const char* kRuleCommand = "ip rule add to 192.168.111.0/24 table 100";
constexpr const char* kRoutePrefix = "ip route add 192.168.111.0/24 dev ";
constexpr const char* kRouteSuffix = " proto static scope link table 100";

constexpr int kActionAdd = 1;
constexpr int kActionRemove = 2;
constexpr int kMaxVideoId = 14;
constexpr int kMaxUsbId = 2;
constexpr int kMaxDeviceIdNum = 15;  // directory numbers from here on are refused
constexpr size_t kUeventBufferSize = 256;
constexpr size_t kLineSize = 256;
constexpr useconds_t kSettleUs = 200000;
constexpr useconds_t kPollRetryUs = 200000;
// The kernel's interface list is read into room for this many records.
constexpr int kIfconfRecords = 16;

// One flag for the whole process: the loop drops uevents that arrive while it is busy.
std::atomic<bool> sIsHandling{false};

class ScopedFd {
public:
    explicit ScopedFd(int fd) : mFd(fd) {}
    ~ScopedFd() {
        if (mFd >= 0) close(mFd);
    }
    ScopedFd(const ScopedFd&) = delete;
    ScopedFd& operator=(const ScopedFd&) = delete;
    int get() const { return mFd; }

private:
    int mFd;
};

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};
struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};

// atoi without its undefined behaviour: numbers beyond int saturate, so they are refused
// as out of range rather than wrapping into it.
int decimalValue(const char* text) {
    errno = 0;
    char* end = nullptr;
    const long long value = strtoll(text, &end, 10);
    if (errno == ERANGE || value > INT_MAX) return INT_MAX;
    if (value < INT_MIN) return INT_MIN;
    return static_cast<int>(value);
}

// sscanf "%x" into a value preset to 0, without its undefined behaviour on overflow:
// anything beyond 32 bits reads as 0xFFFFFFFF, which no accepted product uses.
unsigned int hexValue(const char* text) {
    errno = 0;
    char* end = nullptr;
    const unsigned long long value = strtoull(text, &end, 16);
    if (end == text) return 0;
    if (errno == ERANGE || value > UINT_MAX) return UINT_MAX;
    return static_cast<unsigned int>(value);
}

// The character after `marker` in `header`, read as a decimal digit; false when the marker
// is absent or ends the header. Only that one character is read, so "video12" gives 1.
bool markedDigit(const char* header, const char* marker, int* digit) {
    const char* found = strstr(header, marker);
    if (found == nullptr) return false;
    const char next = found[strlen(marker)];
    if (next == '\0') return false;
    *digit = next - '0';
    return true;
}

bool fileExists(const char* path) {
    std::unique_ptr<FILE, FileCloser> file(fopen(path, "r"));
    return file != nullptr;
}

// Only "usb" and decimal digits may reach the shell.
bool isPlainUsbName(const char* name) {
    const size_t prefixLen = strlen(kUsbPrefix);
    const size_t len = strnlen(name, IFNAMSIZ);
    if (len >= IFNAMSIZ || len <= prefixLen) return false;
    if (strncmp(name, kUsbPrefix, prefixLen) != 0) return false;
    for (size_t i = prefixLen; i < len; ++i) {
        if (name[i] < '0' || name[i] > '9') return false;
    }
    return true;
}

void runShell(const char* command) {
    const int status = system(command);
    (void)status;
}

}  // namespace

int USBEventInterrupt::Client::selfProcess(void* data1, void* data2) {
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                        "lumacast USBEventInterrupt::Client::selfProcess");
    if (nullptr == data1 || nullptr == data2) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "USBEventInterrupt::Client::selfProcess nullptr == data1 || nullptr == "
                            "data2 err");
        return -1;
    }
    if (nullptr == mParent) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "USBEventInterrupt::Client::selfProcess nullptr == mParent err");
        return -2;
    }
    mParent->onProcess(data1, data2);
    return 0;
}

USBEventInterrupt::USBEventInterrupt(ILumacastClient* client)
    : mKeepAlive(false),
      mLumacastClient(client),
      mThreadObject(nullptr),
      mVideoId(-1),
      mUsbId(-1),
      mIsVideo(false),
      mHasTxQueue(false),
      mAction(0),
      mIsNetReady(false),
      mThreadUEvent(nullptr),
      mThreadName("ThreadUEvent"),
      mIsRunning(true),
      mIsStarted(false),
      mUsbPath(),
      mWakeFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "lumacast USBEventInterrupt create");
    if (mWakeFd < 0) {
        // Without it the loop still works; only destruction waits for the next uevent.
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "USBEventInterrupt eventfd failed!(%s,%d)",
                            strerror(errno), errno);
    }
    mThreadObject = new Client(this);
    mThreadUEvent = new PThreadUtil(mThreadName, mThreadObject);
}

USBEventInterrupt::~USBEventInterrupt() {
    mIsRunning = false;
    mIsStarted = false;
    if (mWakeFd >= 0) {
        const uint64_t one = 1;
        if (write(mWakeFd, &one, sizeof(one)) < 0) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                "~USBEventInterrupt wake write failed!(%s,%d)", strerror(errno),
                                errno);
        }
    }
    delete mThreadUEvent;
    mThreadUEvent = nullptr;
    delete mThreadObject;
    mThreadObject = nullptr;
    if (mWakeFd >= 0) close(mWakeFd);
    mWakeFd = -1;
}

int USBEventInterrupt::onProcess(void*, void*) {
    mIsStarted = true;
    checkConnectedDevice();
    uevent_init();
    int ueventFd = uevent_get_fd();
    if (ueventFd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "USBEventInterrupt::onProcess uevent_init failed");
    }
    // The platform's uevent_init may open the socket without close-on-exec; every
    // system("ip ...") of the network set-up would then hand it to its child.
    if (ueventFd >= 0 && fcntl(ueventFd, F_SETFD, FD_CLOEXEC) != 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "USBEventInterrupt::onProcess fcntl FD_CLOEXEC failed!(%s,%d)",
                            strerror(errno), errno);
    }

    char msg[kUeventBufferSize];
    while (mIsRunning) {
        struct pollfd fds[2];
        fds[0] = {mWakeFd, POLLIN, 0};
        fds[1] = {ueventFd, POLLIN, 0};
        if (poll(fds, 2, -1) < 0) {
            if (errno != EINTR) {
                __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                    "USBEventInterrupt::onProcess poll failed!(%s,%d)",
                                    strerror(errno), errno);
                usleep(kPollRetryUs);
            }
            continue;
        }
        if (fds[0].revents != 0) break;
        if (fds[1].revents & (POLLIN | POLLERR)) {
            // uevent_next_event waits until it gets a non-empty message, which would keep
            // the destructor waiting if there were none: look first. This also collects the
            // error an overflowed socket reports after a flood.
            const ssize_t pending = recv(ueventFd, msg, 1, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
            if (pending < 0) {
                if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
                    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                        "USBEventInterrupt::onProcess recv failed!(%s,%d)",
                                        strerror(errno), errno);
                }
                continue;
            }
            if (pending == 0) {
                recv(ueventFd, msg, 1, MSG_DONTWAIT);
                continue;
            }
            memset(msg, 0, sizeof(msg));
            // One byte short of the buffer: the header stays terminated whatever arrives.
            uevent_next_event(msg, static_cast<int>(sizeof(msg) - 1));
            handleUevent(msg);
        } else if (fds[1].revents & (POLLHUP | POLLNVAL)) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                "USBEventInterrupt::onProcess uevent socket closed");
            ueventFd = -1;
        }
    }
    return 0;
}

void USBEventInterrupt::handleUevent(char* msg) {
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                        "[ORB]lumacast USBEventInterrupt::handleUevent");
    if (sIsHandling) {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                            "USBEventInterrupt::handleUevent isRunning");
        return;
    }
    sIsHandling = true;
    parseUevent(msg);
    if (kActionAdd == mAction && mIsVideo && mVideoId >= 0) checkConnectedDevice();
    sIsHandling = false;
}

void USBEventInterrupt::parseUevent(char* msg) {
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "[ORB]lumacast USBEventInterrupt::parseUevent");
    if (msg == nullptr) return;

    if (strstr(msg, kAddMarker) != nullptr) mAction = kActionAdd;
    if (strstr(msg, kRemoveMarker) != nullptr) mAction = kActionRemove;

    int digit = -1;
    if (markedDigit(msg, kVideoClassPath, &digit)) {
        mIsVideo = true;
        if (digit >= 0 && digit <= kMaxVideoId) {
            mVideoId = digit;
            if (kActionRemove == mAction) {
                if (fileExists(mUsbPath)) {
                    // The camera's network function is still there: keep the camera.
                    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                        "USBEventInterrupt::parseUevent %s exist", mUsbPath);
                } else {
                    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                        "USBEventInterrupt::parseUevent fopen %s failed", mUsbPath);
                    mIsVideo = false;
                    mHasTxQueue = false;
                    mVideoId = -1;
                    mUsbId = -1;
                    if (mLumacastClient != nullptr) mLumacastClient->processCameraRemove();
                    mIsNetReady = false;
                    memset(mUsbPath, 0, sizeof(mUsbPath));
                    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                                        "USBEventInterrupt::handleUevent %s removed", "video");
                }
            }
        } else {
            mVideoId = -1;
        }
    }

    if (markedDigit(msg, kNetClassPath, &digit)) {
        if (digit < 0 || digit > kMaxUsbId) {
            mUsbId = -1;
            return;
        }
        mUsbId = digit;
        int queue = -1;
        if (markedDigit(msg, kTxQueueMarker, &queue)) mHasTxQueue = true;
    }
}

void USBEventInterrupt::checkConnectedDevice() {
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                        "[ORB]lumacast USBEventInterrupt::checkConnectedDevice start");
    if (mIsNetReady) return;
    // The kernel announces a function before all of its files are in place.
    usleep(kSettleUs);

    const int videoId = getDeviceIdNum(kDevDir, kVideoPrefix);
    const int usbId = getDeviceIdNum(kNetDevDir, kUsbPrefix);
    // The network function goes first: its test records mUsbPath for the removal check.
    if (-1 == videoId || -1 == usbId || checkWhatDeviceType(kNetClassPath, usbId) != VANTIR_BOTH ||
        checkWhatDeviceType(kVideoClassPath, videoId) != VANTIR_BOTH) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "lumacast USBEventInterrupt::checkConnectedDevice videoId:%d, "
                            "usbId:%d not VANTIR_BOTH",
                            videoId, usbId);
        return;
    }

    if (!setDeviceIp(kUsbPrefix, usbId, kCameraHostIp)) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "USBEventInterrupt::checkConnectedDevice setDeviceIp set %s%d as "
                            "IP:%s failed!",
                            kUsbPrefix, usbId, kCameraHostIp);
        return;
    }

    char netDevName[IFNAMSIZ];
    memset(netDevName, 0, sizeof(netDevName));
    if (getNetDevName(netDevName)) mIsNetReady = addRoute(netDevName);
    if (!mIsNetReady) {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                            "lumacast USBEventInterrupt::checkConnectedDevice set usb & camera "
                            "ip %s",
                            "failed");
        return;
    }

    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                        "USBEventInterrupt::checkConnectedDevice processCameraAdd");
    if (mLumacastClient != nullptr) mLumacastClient->processCameraAdd();
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                        "lumacast USBEventInterrupt::checkConnectedDevice set usb & camera ip %s",
                        "succed");
}

int USBEventInterrupt::getDeviceIdNum(const char* dirPath, const char* prefix) {
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                        "lumacast USBEventInterrupt::getDeviceIdNum devicePath = %s",
                        dirPath != nullptr ? dirPath : "(null)");
    std::unique_ptr<DIR, DirCloser> dir(dirPath != nullptr ? opendir(dirPath) : nullptr);
    if (dir == nullptr || prefix == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "lumacast USBEventInterrupt::getDeviceIdNum open dir:%s failed",
                            dirPath != nullptr ? dirPath : "(null)");
        return -1;
    }

    const size_t prefixLen = strlen(prefix);
    const char* numberText = nullptr;
    while (struct dirent* entry = readdir(dir.get())) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
        if (entry->d_type != DT_REG && entry->d_type != DT_CHR) continue;
        const char* found = strstr(entry->d_name, prefix);
        if (found != nullptr && found[prefixLen] != '\0') {
            numberText = found + prefixLen;
            break;
        }
    }
    if (numberText == nullptr) {
        dir.reset();
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "lumacast USBEventInterrupt::getDeviceIdNum deviceIdNum:%d err", -1);
        return -2;
    }

    // numberText lives in the directory stream: use it before the stream is closed.
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                        "[ORB]lumacast USBEventInterrupt: deviceIdNum_str is %s", numberText);
    const int deviceIdNum = decimalValue(numberText);
    dir.reset();
    if (deviceIdNum >= kMaxDeviceIdNum || deviceIdNum < 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "lumacast USBEventInterrupt::getDeviceIdNum deviceIdNum:%d err",
                            deviceIdNum);
        return -2;
    }
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "lumacast USBEventInterrupt: deviceIdNum = %d",
                        deviceIdNum);
    return deviceIdNum;
}

int USBEventInterrupt::checkWhatDeviceType(const char* classPath, int id) {
    if (classPath == nullptr) return -1;
    char path[256];
    memset(path, 0, sizeof(path));
    const int len = snprintf(path, sizeof(path), kUeventPathFormat, classPath, id);
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                        "lumacast USBEventInterrupt::checkWhatDeviceType path = %s", path);
    if (len < 0 || static_cast<size_t>(len) >= sizeof(path)) {
        // A cut path would name some other file.
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "USBEventInterrupt::checkWhatDeviceType path too long");
        return -1;
    }

    std::unique_ptr<FILE, FileCloser> file(fopen(path, "r"));
    if (file == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "USBEventInterrupt::checkWhatDeviceType fopen devId:%s failed", path);
        return -1;
    }

    if (strncmp(classPath, kNetClassPath, strlen(kNetClassPath)) == 0) {
        static_assert(sizeof(mUsbPath) == sizeof(path), "mUsbPath holds a whole path buffer");
        memcpy(mUsbPath, path, sizeof(mUsbPath));
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                            "lumacast USBEventInterrupt::checkWhatDeviceType usbPath = %s",
                            mUsbPath);
    }

    if (feof(file.get()) || ferror(file.get())) return -1;

    char line[kLineSize];
    while (fgets(line, sizeof(line), file.get()) != nullptr) {
        if (strstr(line, kProductKey) == nullptr) continue;
        if (isVendorInLumacastRange(line)) {
            __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                                "lumacast USBEventInterrupt::checkWhatDeviceType VANTIR_BOTH");
            return VANTIR_BOTH;
        }
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                            "lumacast USBEventInterrupt::checkWhatDeviceType NOT lumacast");
        return -1;
    }
    return -1;
}

bool USBEventInterrupt::isVendorInLumacastRange(char* productLine) {
    char* vidText = nullptr;
    char* pidText = nullptr;
    if (productLine != nullptr) {
        char* keySave = nullptr;
        strtok_r(productLine, "=", &keySave);
        char* value = strtok_r(nullptr, "=", &keySave);
        if (value != nullptr) {
            char* idSave = nullptr;
            vidText = strtok_r(value, "/", &idSave);
            if (vidText != nullptr) pidText = strtok_r(nullptr, "/", &idSave);
        }
    }
    if (vidText == nullptr || pidText == nullptr) {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                            "lumacast [orb]USBEventInterrupt::isVendorInLumacastRange string "
                            "split error");
        return false;
    }

    const unsigned int vid = hexValue(vidText);
    const unsigned int pid = hexValue(pidText);
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                        "lumacast [orb]USBEventInterrupt::isVendorInLumacastRange int_vid = %x, "
                        "int_pid = %x",
                        vid, pid);

    // These models need the link heartbeat.
    if ((0x2BC5 == vid && 0x0604 == pid) || (0x0416 == vid && (0x5041 == pid || 0x5044 == pid))) {
        mKeepAlive = true;
        return true;
    }
    mKeepAlive = false;
    if (0x1D6B == vid && 0x0102 == pid) return true;
    if (0x0416 == vid && pid >= 0x5030 && pid <= 0x5050) return true;
    return false;
}

bool USBEventInterrupt::setDeviceIp(const char* prefix, int id, const char* ip) {
    char devName[40];
    memset(devName, 0, sizeof(devName));
    snprintf(devName, sizeof(devName), "%s%d", prefix != nullptr ? prefix : "", id);
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                        "lumacast USBEventInterrupt::setDeviceIp devName = %s", devName);
    // A name cut to fit the request would name another interface.
    if (prefix == nullptr || strlen(devName) >= IFNAMSIZ) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "lumacast USBEventInterrupt::setDeviceIp devName:%s refused", devName);
        return false;
    }
    struct in_addr address;
    if (ip == nullptr || inet_pton(AF_INET, ip, &address) != 1) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "lumacast USBEventInterrupt::setDeviceIp ip:%s refused",
                            ip != nullptr ? ip : "(null)");
        return false;
    }

    ScopedFd socketFd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (socketFd.get() < 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "lumacastUSBEventInterrupt::setDeviceIp socket socketFD:%d failed!",
                            socketFd.get());
        return false;
    }

    struct ifreq ifr;
    memset(&ifr, 0, sizeof(ifr));
    memcpy(ifr.ifr_name, devName, IFNAMSIZ);
    struct sockaddr_in* sin = reinterpret_cast<struct sockaddr_in*>(&ifr.ifr_addr);
    sin->sin_family = AF_INET;
    sin->sin_port = 0;
    sin->sin_addr = address;
    int ret = ioctl(socketFd.get(), SIOCSIFADDR, &ifr);
    if (ret >= 0) {
        // The flag word overlays the address family still in the request (AF_INET, which
        // is IFF_BROADCAST), so the interface gets IFF_UP | IFF_BROADCAST | IFF_RUNNING.
        ifr.ifr_flags |= IFF_UP | IFF_RUNNING;
        ret = ioctl(socketFd.get(), SIOCSIFFLAGS, &ifr);
    }
    if (ret < 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "lumacast USBEventInterrupt::setDeviceIp ioctl:%d failed!", ret);
        return false;
    }
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                        "lumacast USBEventInterrupt::setDeviceIp finish");
    return true;
}

bool USBEventInterrupt::getNetDevName(char* netDevName) {
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                        "lumacast USBEventInterrupt::getNetDevName start");
    if (netDevName == nullptr) return false;

    struct ifreq records[kIfconfRecords];
    memset(records, 0, sizeof(records));
    struct ifconf ifc;
    memset(&ifc, 0, sizeof(ifc));
    ifc.ifc_len = sizeof(records);
    ifc.ifc_req = records;

    ScopedFd socketFd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (socketFd.get() < 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "lumacast USBEventInterrupt::getNetDevName socket failed");
        return false;
    }
    if (ioctl(socketFd.get(), SIOCGIFCONF, &ifc) < 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "lumacast USBEventInterrupt::getNetDevName ioctl failed");
        return false;
    }

    int count = ifc.ifc_len / static_cast<int>(sizeof(struct ifreq));
    if (count > kIfconfRecords) count = kIfconfRecords;
    for (int i = 0; i < count; ++i) {
        const struct sockaddr_in* sin =
                reinterpret_cast<const struct sockaddr_in*>(&records[i].ifr_addr);
        char addressText[INET_ADDRSTRLEN];
        if (inet_ntop(AF_INET, &sin->sin_addr, addressText, sizeof(addressText)) == nullptr) {
            continue;
        }
        char name[IFNAMSIZ + 1];
        memcpy(name, records[i].ifr_name, IFNAMSIZ);
        name[IFNAMSIZ] = '\0';
        if (strcmp(addressText, kCameraHostIp) == 0 && strstr(name, kUsbPrefix) != nullptr) {
            const size_t len = strnlen(name, IFNAMSIZ - 1);
            memcpy(netDevName, name, len);
            netDevName[len] = '\0';
            return true;
        }
    }
    return false;
}

bool USBEventInterrupt::addRoute(const char* netDevName) {
    if (nullptr == netDevName || '\0' == netDevName[0]) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "lumacast USBEventInterrupt::addRoute nullptr == netDevName err");
        return false;
    }
    if (!isPlainUsbName(netDevName)) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "lumacast USBEventInterrupt::addRoute netDevName:%.*s refused",
                            IFNAMSIZ, netDevName);
        return false;
    }

    char routeCommand[256];
    memset(routeCommand, 0, sizeof(routeCommand));
    snprintf(routeCommand, sizeof(routeCommand), "%s%s%s", kRoutePrefix, netDevName, kRouteSuffix);
    // Their exit statuses tell nothing useful: a replug finds rule and route already there.
    runShell(kRuleCommand);
    runShell(routeCommand);
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                        "lumacast USBEventInterrupt::addRoute add route success for %s",
                        netDevName);
    return true;
}

}  // namespace lumacast
}  // namespace android
