#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

// The camera's side of the link's wire format, written from the format alone: messages
// the camera sends, command frames it receives.
namespace lumacast::camsim {

constexpr uint8_t kKindData = 0xA1;
constexpr uint8_t kKindResult = 0xA2;
constexpr uint16_t kTypeAiJson = 1;
constexpr uint16_t kTypeAiProtobuf = 2;
constexpr uint16_t kTypeFrame = 3;
constexpr size_t kMessageHeadLen = 24;
constexpr size_t kBlockHeadLen = 12;
constexpr size_t kCommandHeadLen = 8;

struct Block {
    int32_t param = 0;
    std::string payload;
    // Length written into the block header; the payload's size when unset.
    std::optional<int32_t> declaredLen;
};

struct Message {
    uint8_t kind = kKindData;
    uint16_t dataType = 0;
    std::vector<Block> blocks;
    // Result text; written after the blocks whenever it is not empty, whatever the kind.
    std::string text;
    // Header fields; derived from `blocks` and `text` when unset.
    std::optional<uint32_t> declaredJsonLen;
    std::optional<uint32_t> declaredBlockCount;
    uint8_t magic[3] = {0xFF, 0x00, 0x01};
};

std::string encodeMessage(const Message& message);
// A result message carrying `text` and nothing else.
std::string resultMessage(const std::string& text);
// A data message of one type with one block per payload; block parameters count from
// `firstParam`.
std::string dataMessage(uint16_t dataType, const std::vector<std::string>& payloads,
                        int32_t firstParam = 0);
// A command frame as the daemon sends it.
std::string commandFrame(const std::string& text);

struct Command {
    std::string frame;  // the whole frame, header included
    std::string text;
    int cmdId = -1;
    std::optional<int> param;
};

// Cuts command frames out of the byte stream from the daemon. Bytes that do not start a
// frame are skipped up to the next magic.
class CommandParser {
  public:
    void feed(const char* data, size_t len);
    bool next(Command* command);
    size_t skippedBytes() const { return mSkipped; }

  private:
    std::string mBuffer;
    size_t mSkipped = 0;
};

// The integer after `"key":` in a flat JSON text, if there is one.
std::optional<int> jsonInt(const std::string& text, const std::string& key);

}  // namespace lumacast::camsim
