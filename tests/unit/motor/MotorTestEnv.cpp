#include "tests/unit/motor/MotorTestEnv.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <atomic>
#include <fstream>
#include <random>

#include "tests/support/TestEnv.h"

// Sanitizers bring their own allocator, which glibc's cannot stand in for.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define LUMACAST_WRAP_MALLOC 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
        __has_feature(memory_sanitizer)
#define LUMACAST_WRAP_MALLOC 0
#endif
#endif
#ifndef LUMACAST_WRAP_MALLOC
#define LUMACAST_WRAP_MALLOC 1
#endif

namespace lumacast::test {

namespace {

const int kLines[] = {146, 147, 150, 151, 152};

void mountFakeSysClass() {
    static bool mounted = false;
    if (mounted) return;
    ASSERT_EQ(0, mount("tmpfs", "/sys/class", "tmpfs", 0, nullptr)) << strerror(errno);
    ASSERT_EQ(0, mkdir("/sys/class/gpio", 0755));
    for (int line : kLines) {
        ASSERT_EQ(0, mkdir(("/sys/class/gpio/gpio" + std::to_string(line)).c_str(), 0755));
    }
    mounted = true;
}

std::atomic<size_t> gFailSize{0};
std::atomic<pid_t> gFailThread{0};

int fdCount() {
    DIR* d = opendir("/proc/self/fd");
    if (d == nullptr) return -1;
    int n = 0;
    while (struct dirent* e = readdir(d)) {
        if (e->d_name[0] != '.') ++n;
    }
    closedir(d);
    return n - 1;  // the directory's own descriptor
}

}  // namespace

bool failNextMalloc(size_t size) {
#if !LUMACAST_WRAP_MALLOC
    (void)size;
    return false;
#else
    gFailThread = gettid();
    gFailSize = size;
    return true;
#endif
}

void MotorTest::SetUp() {
    devsim::reset();
    mountFakeSysClass();
    // The platform leaves both motor lines idle high, the camera down, the switch off.
    setGpio(146, "1");
    setGpio(147, "1");
    setGpio(150, "1");
    setGpio(151, "1");
    setGpio(152, "0");
    mFdBaseline = fdCount();
}

void MotorTest::TearDown() {
    EXPECT_EQ(0, devsim::openDescriptors()) << "a simulated device was left open";
    EXPECT_EQ(mFdBaseline, fdCount()) << "a descriptor was leaked";
    devsim::reset();
}

std::string MotorTest::gpioPath(int line) {
    return "/sys/class/gpio/gpio" + std::to_string(line) + "/value";
}

// Plain open/write: the stdio route would get the sysfs treatment (no truncation).
void MotorTest::setGpio(int line, const std::string& value) {
    const int fd = open(gpioPath(line).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(static_cast<ssize_t>(value.size()), write(fd, value.data(), value.size()));
    close(fd);
}

std::string MotorTest::gpio(int line) { return readFile(gpioPath(line)); }

void MotorTest::removeGpio(int line) { unlink(gpioPath(line).c_str()); }

std::string MotorTest::writeImage(size_t size, std::vector<uint8_t>* bytes, uint32_t seed) {
    *bytes = randomBytes(size, seed);
    const std::string path = testTempDir() + "/image-" + std::to_string(size) + ".bin";
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes->data()), static_cast<std::streamsize>(size));
    return path;
}

std::vector<uint8_t> randomBytes(size_t n, uint32_t seed) {
    std::mt19937 gen(seed);
    std::vector<uint8_t> out(n);
    for (auto& b : out) b = static_cast<uint8_t>(gen());
    return out;
}

uint16_t le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

uint32_t zlibCrc(const uint8_t* p, size_t n) {
    return static_cast<uint32_t>(crc32(0, p, static_cast<uInt>(n)));
}

std::string timeline() {
    const std::vector<devsim::Transfer> transfers = devsim::transfers();
    const std::vector<devsim::Pause> pauses = devsim::pauses();
    std::string out;
    char token[32];
    size_t p = 0;
    for (size_t t = 0; t <= transfers.size(); ++t) {
        // A pause moves the clock on, so a transfer at its start time came before it.
        for (; p < pauses.size() && (t == transfers.size() || pauses[p].atUs < transfers[t].timeUs);
             ++p) {
            snprintf(token, sizeof(token), "p%llu ", static_cast<unsigned long long>(pauses[p].us));
            out += token;
        }
        if (t == transfers.size()) break;
        const devsim::Transfer& x = transfers[t];
        const bool read = x.msgs.size() == 2 && x.msgs[1].read;
        const int reg = x.msgs.empty() || x.msgs[0].data.empty() ? -1 : x.msgs[0].data[0];
        if (read) {
            snprintf(token, sizeof(token), "r%02X/%zu%s ", reg, x.msgs[1].data.size(),
                     x.error != 0 ? "!" : "");
        } else {
            snprintf(token, sizeof(token), "w%02X%s ", reg, x.error != 0 ? "!" : "");
        }
        out += token;
    }
    return out;
}

std::string times(int n, const std::string& tokens) {
    std::string out;
    for (int i = 0; i < n; ++i) out += tokens;
    return out;
}

}  // namespace lumacast::test

#if LUMACAST_WRAP_MALLOC
// glibc's own allocator under the public name, so that one chosen allocation can fail.
extern "C" void* __libc_malloc(size_t size);
extern "C" void* malloc(size_t size) {
    using lumacast::test::gFailSize;
    if (size != 0 && size == gFailSize.load(std::memory_order_relaxed) &&
        gettid() == lumacast::test::gFailThread.load() && gFailSize.exchange(0) == size) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_malloc(size);
}
#endif
