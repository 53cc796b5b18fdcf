#pragma once

#include <stdint.h>

namespace android {
namespace lumacast {

// Size that stat reports for `path`, or -1.
int64_t get_file_size(const char* path);

// Running CRC-32 (reflected 0xEDB88320, as zlib's crc32): feed the previous result back as
// `crc` to extend it over further pieces; start from 0.
uint32_t get_crc32(uint32_t crc, const unsigned char* buf, uint32_t len);

}  // namespace lumacast
}  // namespace android
