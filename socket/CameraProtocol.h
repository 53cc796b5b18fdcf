#pragma once

#include <stddef.h>
#include <stdint.h>

namespace android {
namespace lumacast {

// The camera's fixed end of its USB network.
constexpr const char* CAMERA_ADDRESS = "192.168.111.10";
constexpr uint16_t CAMERA_PORT = 10001;

// Command frame, daemon to camera: magic, big-endian text length, JSON text.
constexpr uint8_t CMD_HEAD_MAGIC[4] = {0xFF, 0x00, 0xAB, 0xBC};
constexpr int LEN_CMD_HEAD = 8;

// Message, camera to daemon: 24-byte header, blocks of 12-byte header + payload, then the
// result text for results.
constexpr int LEN_AI_HEAD = 24;
constexpr int LEN_BLOCK_HEAD = 12;
constexpr uint8_t MSG_MAGIC_0 = 0xFF;
constexpr uint8_t MSG_MAGIC_1 = 0x00;
constexpr uint8_t MSG_MAGIC_2 = 0x01;
constexpr uint8_t MSG_KIND_DATA = 0xA1;
constexpr uint8_t MSG_KIND_RESULT = 0xA2;
constexpr uint16_t DATA_TYPE_AI_JSON = 1;
constexpr uint16_t DATA_TYPE_AI_PROTOBUF = 2;
constexpr uint16_t DATA_TYPE_FRAME = 3;

// Payloads are read in pieces of this size.
constexpr int LEN_READ_PIECE = 1024;

// Bounds on lengths the camera announces; anything larger is refused before reading or
// allocating, so a corrupt or hostile stream cannot make the daemon allocate gigabytes.
// Result texts are short JSON replies to short commands.
constexpr uint32_t MAX_RESULT_TEXT_LEN = 64 * 1024;
// One block holds at most one whole frame; 16 MiB covers an uncompressed 4K picture.
constexpr int32_t MAX_BLOCK_PAYLOAD_LEN = 16 * 1024 * 1024;
// Frames come in a few blocks; this is far above any real message and keeps a garbage
// header from holding the reader in one message for billions of iterations.
constexpr uint32_t MAX_BLOCK_COUNT = 65536;

inline uint32_t readBigEndian32(const uint8_t* p) {
    return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
           (static_cast<uint32_t>(p[2]) << 8) | static_cast<uint32_t>(p[3]);
}

inline uint16_t readBigEndian16(const uint8_t* p) {
    return static_cast<uint16_t>((p[0] << 8) | p[1]);
}

inline void writeBigEndian32(uint8_t* p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v >> 24);
    p[1] = static_cast<uint8_t>(v >> 16);
    p[2] = static_cast<uint8_t>(v >> 8);
    p[3] = static_cast<uint8_t>(v);
}

}  // namespace lumacast
}  // namespace android
