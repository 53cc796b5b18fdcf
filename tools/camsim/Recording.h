#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "tools/camsim/CameraWire.h"

// What a listener received, with its timing, as `lumacastctl listen --record` writes it and
// `camsim --replay` plays it back. The file is the 8 bytes "LUMAREC1", then one record per
// callback: a 24-byte little-endian header (kind u32: the data type on the link, 1 AI JSON, 2 AI
// protobuf, 3 frame; blockCount i32; blockParam i32; microseconds since the listener was registered
// u64; length u32) and the callback's bytes.
namespace lumacast::camsim {

struct RecordedCallback {
    uint32_t kind = 0;  // the data type of the block on the link
    int32_t blockCount = 0;
    int32_t blockParam = 0;
    uint64_t offsetUs = 0;
    std::string data;
};

// One camera message of a replay, due `offsetUs` after the replay began.
struct TimedMessage {
    uint64_t offsetUs = 0;
    std::string bytes;
};

class Recording {
  public:
    static constexpr char kMagic[] = "LUMAREC1";
    static constexpr size_t kMagicLen = 8;
    static constexpr size_t kHeaderLen = 24;
    // A record longer than the link's longest block cannot have come from a listener.
    static constexpr uint32_t kMaxDataLen = 16 * 1024 * 1024;
    static constexpr uint64_t kMaxOffsetUs = 366ULL * 24 * 3600 * 1000 * 1000;

    static std::string encode(const RecordedCallback& record);
    // Parses a whole file's bytes; false with the reason (and the record it is in) for a
    // foreign, truncated or corrupt file.
    static bool decode(const std::string& bytes, std::vector<RecordedCallback>* records,
                       std::string* why);
    static bool load(const std::string& path, std::vector<RecordedCallback>* records,
                     std::string* why);

    // The camera messages that make the daemon call its listeners with exactly these
    // records: frame blocks go back into messages of their recorded block count (blocks the
    // daemon never passed on, those without payload, stay empty), AI blocks one per message.
    // Offsets count from the first record.
    static std::vector<TimedMessage> toMessages(const std::vector<RecordedCallback>& records);
};

}  // namespace lumacast::camsim
