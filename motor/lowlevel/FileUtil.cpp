#include "motor/lowlevel/FileUtil.h"

#include <sys/stat.h>

#include <array>

namespace android {
namespace lumacast {

namespace {

constexpr std::array<uint32_t, 256> makeCrcTable() {
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int k = 0; k < 8; ++k) c = (c & 1) ? (0xEDB88320u ^ (c >> 1)) : (c >> 1);
        table[i] = c;
    }
    return table;
}

constexpr std::array<uint32_t, 256> kCrcTable = makeCrcTable();
static_assert(kCrcTable[1] == 0x77073096u && kCrcTable[255] == 0x2D02EF8Du, "CRC-32 table");

inline uint32_t step(uint32_t c, unsigned char byte) {
    return kCrcTable[(c ^ byte) & 0xff] ^ (c >> 8);
}

}  // namespace

int64_t get_file_size(const char* path) {
    struct stat st;
    if (path == nullptr || stat(path, &st) != 0) return -1;
    return static_cast<int64_t>(st.st_size);
}

uint32_t get_crc32(uint32_t crc, const unsigned char* buf, uint32_t len) {
    if (buf == nullptr || len == 0) return crc;
    uint32_t c = crc ^ 0xFFFFFFFFu;
    // Images are checked piece by piece; eight lookups per pass keep the loop overhead low.
    while (len >= 8) {
        c = step(c, buf[0]);
        c = step(c, buf[1]);
        c = step(c, buf[2]);
        c = step(c, buf[3]);
        c = step(c, buf[4]);
        c = step(c, buf[5]);
        c = step(c, buf[6]);
        c = step(c, buf[7]);
        buf += 8;
        len -= 8;
    }
    while (len-- > 0) c = step(c, *buf++);
    return c ^ 0xFFFFFFFFu;
}

}  // namespace lumacast
}  // namespace android
