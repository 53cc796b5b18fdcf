#include "tools/devsim/Simulator.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <deque>
#include <map>
#include <memory>
#include <mutex>

#include "tools/devsim/DevSim.h"

namespace lumacast::devsim {

namespace {

constexpr size_t kMaxLogEntries = 100000;
constexpr unsigned int kVenusReadPin = 0x80217201u;
constexpr size_t kPinNameLen = 32;

struct PinValue {  // the vendor driver's named-pin record
    char name[kPinNameLen];
    uint8_t value;
};
static_assert(sizeof(PinValue) == 33, "vendor record layout");

struct OpenDevice {
    internal::DeviceKind kind;
    int bus;
};

struct State {
    std::mutex mutex;
    Board board = Board::All;
    std::map<int, bool> busPresent;
    BirchMcu birch;
    CedarMcu cedar2;
    CedarMcu cedar1;
    std::vector<Fault> faults;
    bool venusPresent = true;
    bool venusRefuses = false;
    std::map<int, int> busRefusals;
    int venusRefusals = 0;
    std::map<std::string, uint8_t> pins;
    std::deque<PinRequest> pinRequests;
    std::map<int, OpenDevice> open;
    std::deque<Transfer> transfers;
    bool virtualTime = false;
    uint64_t clockUs = 0;
    std::deque<Pause> pauses;
    std::function<void(uint64_t)> pauseHook;
    int logFd = -1;

    State() { resetLocked(); }

    void resetLocked() {
        applyBoard(Board::All);
        birch.reset();
        cedar1.reset();
        cedar2.reset();
        faults.clear();
        venusRefuses = false;
        busRefusals.clear();
        venusRefusals = 0;
        pins.clear();
        pins["PIN_CAM_DET_SOC"] = 1;
        pinRequests.clear();
        transfers.clear();
        virtualTime = false;
        clockUs = 0;
        pauses.clear();
        pauseHook = nullptr;
    }

    static bool boardHasBus(Board b, int bus) {
        if (bus == 1) return b == Board::All || b == Board::Damson;
        if (bus == 2) return b == Board::All || b == Board::Birch || b == Board::Cedar;
        return false;
    }
    static bool boardHasVenus(Board b) { return b == Board::All || b == Board::Damson; }

    void applyBoard(Board b) {
        board = b;
        busPresent.clear();
        busPresent[1] = boardHasBus(b, 1);
        busPresent[2] = boardHasBus(b, 2);
        venusPresent = boardHasVenus(b);
    }

    I2cChip* chip(int bus, uint16_t addr) {
        if (bus == kBirchBus && addr == kBirchAddr &&
            (board == Board::All || board == Board::Birch)) {
            return &birch;
        }
        if (bus == kCedarBus && addr == kCedarAddr &&
            (board == Board::All || board == Board::Cedar)) {
            return &cedar2;
        }
        if (bus == kDamsonBus && addr == kCedarAddr &&
            (board == Board::All || board == Board::Damson)) {
            return &cedar1;
        }
        return nullptr;
    }
};

// Never destroyed: interposed calls may arrive from atexit handlers after static
// destructors have run.
State& state() {
    static State* s = [] {
        internal::interposerLinked();
        return new State;
    }();
    return *s;
}

thread_local bool tDeviceThread = false;

// Which descriptors are simulated devices, readable without the lock. Written under the
// lock; descriptors past the table are counted instead.
constexpr int kFdSlots = 1 << 16;
unsigned char gTracked[kFdSlots];
int gTrackedHigh = 0;

void setTracked(int fd, bool tracked) {
    if (fd < kFdSlots) {
        __atomic_store_n(&gTracked[fd], tracked ? 1 : 0, __ATOMIC_RELEASE);
    } else {
        __atomic_add_fetch(&gTrackedHigh, tracked ? 1 : -1, __ATOMIC_RELEASE);
    }
}

DEVSIM_UNINSTRUMENTED bool samePrefix(const char* s, const char* prefix) {
    while (*prefix != '\0') {
        if (*s++ != *prefix++) return false;
    }
    return true;
}

template <typename T>
void pushCapped(std::deque<T>& q, T v) {
    if (q.size() >= kMaxLogEntries) q.pop_front();
    q.push_back(std::move(v));
}

// The first message's register, and whether the transfer reads.
bool faultRefuses(State& s, int bus, const Transfer& t, int* error) {
    const Message& first = t.msgs[0];
    const int reg = (!first.read && !first.data.empty()) ? first.data[0] : -1;
    bool hasRead = false;
    for (const Message& m : t.msgs) hasRead = hasRead || m.read;
    for (Fault& f : s.faults) {
        if (f.count == 0) continue;
        if ((f.bus >= 0 && f.bus != bus) || (f.addr >= 0 && f.addr != first.addr) ||
            (f.reg >= 0 && f.reg != reg)) {
            continue;
        }
        if ((f.kind == Fault::Kind::Write && hasRead) ||
            (f.kind == Fault::Kind::Read && !hasRead)) {
            continue;
        }
        if (f.skip > 0) {
            --f.skip;
            return false;
        }
        if (f.count > 0) --f.count;
        ++f.fired;
        *error = f.error;
        return true;
    }
    return false;
}

void logTransfer(State& s, const Transfer& t) {
    if (s.logFd >= 0) {
        const std::string line = internal::formatTransfer(t) + "\n";
        // Best effort: a full disk must not change what the daemon sees.
        const ssize_t written = write(s.logFd, line.data(), line.size());
        (void)written;
    }
    pushCapped(s.transfers, t);
}

// Runs a transfer whose messages were copied in; read messages get their data. Returns the
// number of messages or -errno.
int i2cTransfer(State& s, Transfer& t) {
    int error = 0;
    if (!s.busPresent[t.bus]) {
        error = ENODEV;
        ++s.busRefusals[t.bus];
    } else if (!faultRefuses(s, t.bus, t, &error)) {
        for (const Message& m : t.msgs) {
            if (s.chip(t.bus, m.addr) == nullptr) error = ENXIO;
        }
    }
    t.timeUs = s.clockUs;
    if (error != 0) {
        t.error = error;
        logTransfer(s, t);
        return -error;
    }
    std::map<uint16_t, uint8_t> selected;  // register pointer per address in this transfer
    const size_t n = t.msgs.size();
    for (size_t i = 0; i < n; ++i) {
        Message& m = t.msgs[i];
        I2cChip* c = s.chip(t.bus, m.addr);
        if (m.read) {
            c->read(selected[m.addr], m.data.data(), m.data.size());
        } else if (m.data.size() == 1 && i + 1 < n && t.msgs[i + 1].read) {
            selected[m.addr] = m.data[0];
        } else {
            c->write(m.data.data(), m.data.size());
        }
    }
    logTransfer(s, t);
    return static_cast<int>(n);
}

// The caller's memory is read before and written after the simulator's lock, as the kernel
// copies from and to user space: a race on those buffers is the caller's, and a sanitizer
// reporting it never waits on devsim's lock.
int i2cIoctl(State& s, int bus, const i2c_rdwr_ioctl_data* data) {
    if (data == nullptr) return -EFAULT;
    if (data->nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) return -EINVAL;
    if (data->nmsgs == 0) return 0;
    if (data->msgs == nullptr) return -EFAULT;
    Transfer t;
    t.bus = bus;
    for (uint32_t i = 0; i < data->nmsgs; ++i) {
        const i2c_msg& in = data->msgs[i];
        if (in.len > 8192) return -EINVAL;
        if (in.len > 0 && in.buf == nullptr) return -EFAULT;
        Message m;
        m.addr = in.addr;
        m.read = (in.flags & I2C_M_RD) != 0;
        if (m.read) {
            m.data.resize(in.len);
        } else {
            m.data.assign(in.buf, in.buf + in.len);
        }
        t.msgs.push_back(std::move(m));
    }
    int ret;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        ret = i2cTransfer(s, t);
    }
    if (ret > 0) {
        for (uint32_t i = 0; i < data->nmsgs; ++i) {
            if (t.msgs[i].read && !t.msgs[i].data.empty()) {
                memcpy(data->msgs[i].buf, t.msgs[i].data.data(), t.msgs[i].data.size());
            }
        }
    }
    return ret;
}

int venusIoctl(State& s, unsigned long request, void* arg) {
    if (static_cast<unsigned int>(request) != kVenusReadPin) return -ENOTTY;
    if (arg == nullptr) return -EFAULT;
    PinValue pin;
    memcpy(&pin, arg, sizeof(pin));
    PinRequest r;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        if (!s.venusPresent) {
            r.error = ENODEV;
            ++s.venusRefusals;
        } else if (memchr(pin.name, '\0', kPinNameLen) == nullptr) {
            r.error = EINVAL;
        } else {
            r.name = pin.name;
            auto it = s.pins.find(r.name);
            if (s.venusRefuses) {
                r.error = EIO;
                ++s.venusRefusals;
            } else if (it == s.pins.end()) {
                r.error = EINVAL;
            } else {
                pin.value = it->second;
            }
        }
        pushCapped(s.pinRequests, r);
    }
    if (r.error != 0) return -r.error;
    memcpy(static_cast<char*>(arg) + offsetof(PinValue, value), &pin.value, 1);
    return 0;
}

}  // namespace

namespace internal {

DEVSIM_UNINSTRUMENTED DeviceKind classify(const char* path, int* bus) {
    if (path == nullptr || !samePrefix(path, "/dev/")) return DeviceKind::None;
    const char* rest = path + 5;
    if (samePrefix(rest, "venus_gpio") && rest[10] == '\0') return DeviceKind::Venus;
    if (!samePrefix(rest, "i2c-")) return DeviceKind::None;
    const char* digits = rest + 4;
    int value = 0;
    int n = 0;
    for (; digits[n] != '\0'; ++n) {
        if (n == 3 || digits[n] < '0' || digits[n] > '9') return DeviceKind::None;
        value = value * 10 + (digits[n] - '0');
    }
    if (n == 0) return DeviceKind::None;
    *bus = value;
    return DeviceKind::I2c;
}

DEVSIM_UNINSTRUMENTED bool isGpioValuePath(const char* path) {
    if (path == nullptr || !samePrefix(path, "/sys/class/gpio/")) return false;
    size_t len = 0;
    while (path[len] != '\0') ++len;
    const size_t prefixLen = 16;
    return len > prefixLen + 6 && samePrefix(path + len - 6, "/value");
}

DEVSIM_UNINSTRUMENTED bool mayBeSimulated(int fd) {
    if (fd < 0) return false;
    if (fd < kFdSlots) return __atomic_load_n(&gTracked[fd], __ATOMIC_ACQUIRE) != 0;
    return __atomic_load_n(&gTrackedHigh, __ATOMIC_ACQUIRE) != 0;
}

DEVSIM_UNINSTRUMENTED bool isDeviceThread() { return tDeviceThread; }

int openDevice(DeviceKind kind, int bus, int flags) {
    markDeviceThread();
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    const bool present = kind == DeviceKind::Venus ? s.venusPresent : s.busPresent[bus];
    if (!present) {
        ++(kind == DeviceKind::Venus ? s.venusRefusals : s.busRefusals[bus]);
        errno = ENOENT;
        return -1;
    }
    char name[32];
    snprintf(name, sizeof(name), kind == DeviceKind::Venus ? "devsim-venus_gpio" : "devsim-i2c-%d",
             bus);
    const int fd = memfd_create(name, (flags & O_CLOEXEC) ? MFD_CLOEXEC : 0);
    if (fd < 0) return -1;
    s.open[fd] = OpenDevice{kind, bus};
    setTracked(fd, true);
    return fd;
}

void forgetDescriptor(int fd) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.open.erase(fd) > 0) setTracked(fd, false);
}

bool handleIoctl(int fd, unsigned long request, void* arg, int* result) {
    State& s = state();
    OpenDevice dev;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        auto it = s.open.find(fd);
        if (it == s.open.end()) return false;
        dev = it->second;
    }
    int ret;
    if (dev.kind == DeviceKind::Venus) {
        ret = venusIoctl(s, request, arg);
    } else if (request == I2C_RDWR) {
        ret = i2cIoctl(s, dev.bus, static_cast<const i2c_rdwr_ioctl_data*>(arg));
    } else {
        ret = -ENOTTY;
    }
    if (ret < 0) {
        errno = -ret;
        *result = -1;
    } else {
        *result = ret;
    }
    return true;
}

void markDeviceThread() { tDeviceThread = true; }

bool pause(uint64_t us) {
    State& s = state();
    bool virtualTime;
    std::function<void(uint64_t)> hook;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        virtualTime = s.virtualTime;
        pushCapped(s.pauses, Pause{s.clockUs, us});
        if (virtualTime) s.clockUs += us;
        hook = s.pauseHook;
    }
    if (hook) hook(us);
    return virtualTime;
}

std::string formatTransfer(const Transfer& t) {
    std::string out = "t=" + std::to_string(t.timeUs) + " i2c-" + std::to_string(t.bus);
    char hex[16];
    for (const Message& m : t.msgs) {
        snprintf(hex, sizeof(hex), " %c 0x%02x:", m.read ? 'R' : 'W', m.addr);
        out += hex;
        for (uint8_t b : m.data) {
            snprintf(hex, sizeof(hex), " %02x", b);
            out += hex;
        }
        out += " |";
    }
    out += t.error == 0 ? " ok" : std::string(" refused ") + strerror(t.error);
    return out;
}

void setTransferLogFd(int fd) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.logFd = fd;
}

}  // namespace internal

void reset() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.resetLocked();
}

void setBoard(Board board) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.applyBoard(board);
}

void setBusPresent(int bus, bool present) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.busPresent[bus] = present;
}

void addFault(const Fault& fault) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.faults.push_back(fault);
}

void clearFaults() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.faults.clear();
}

std::vector<Fault> faults() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.faults;
}

BoardStatus boardStatus() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    BoardStatus b;
    b.board = s.board;
    b.busPresent = s.busPresent;
    for (const auto& [bus, present] : s.busPresent)
        b.busByBoard[bus] = State::boardHasBus(s.board, bus);
    b.venusPresent = s.venusPresent;
    b.venusByBoard = State::boardHasVenus(s.board);
    b.venusRefuses = s.venusRefuses;
    b.virtualTime = s.virtualTime;
    b.busRefusals = s.busRefusals;
    b.venusRefusals = s.venusRefusals;
    return b;
}

void setVenusPresent(bool present) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.venusPresent = present;
}

void setVenusRefuses(bool refuses) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.venusRefuses = refuses;
}

void setPin(const std::string& name, uint8_t value) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.pins[name] = value;
}

std::vector<PinRequest> pinRequests() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return {s.pinRequests.begin(), s.pinRequests.end()};
}

void withBirch(const std::function<void(BirchMcu&)>& fn) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    fn(s.birch);
}

void withCedar(int bus, const std::function<void(CedarMcu&)>& fn) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    fn(bus == kDamsonBus ? s.cedar1 : s.cedar2);
}

std::vector<Transfer> transfers() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return {s.transfers.begin(), s.transfers.end()};
}

void clearTransfers() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.transfers.clear();
}

std::vector<std::vector<uint8_t>> writesTo(int bus, int addr, int reg) {
    std::vector<std::vector<uint8_t>> out;
    for (const Transfer& t : transfers()) {
        if (t.bus != bus || t.error != 0 || t.msgs.size() != 1) continue;
        const Message& m = t.msgs[0];
        if (m.read || m.addr != addr || m.data.empty() || m.data[0] != reg) continue;
        out.emplace_back(m.data.begin() + 1, m.data.end());
    }
    return out;
}

int openDescriptors() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return static_cast<int>(s.open.size());
}

void setVirtualTime(bool on) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.virtualTime = on;
}

uint64_t nowUs() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.clockUs;
}

std::vector<Pause> pauses() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return {s.pauses.begin(), s.pauses.end()};
}

void clearPauses() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.pauses.clear();
}

void setPauseHook(std::function<void(uint64_t us)> hook) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.pauseHook = std::move(hook);
}

}  // namespace lumacast::devsim
