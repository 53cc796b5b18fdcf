#include "tools/camsim/CameraWire.h"

#include <stdlib.h>
#include <string.h>

namespace lumacast::camsim {

namespace {

// A command text longer than this is taken as a corrupt length, not waited for.
constexpr uint32_t kMaxCommandText = 64 * 1024;
const char kCommandMagic[4] = {'\xFF', '\x00', '\xAB', '\xBC'};

void putBigEndian32(std::string* out, uint32_t v) {
    out->push_back(static_cast<char>(v >> 24));
    out->push_back(static_cast<char>(v >> 16));
    out->push_back(static_cast<char>(v >> 8));
    out->push_back(static_cast<char>(v));
}

uint32_t bigEndian32(const char* p) {
    const auto* u = reinterpret_cast<const uint8_t*>(p);
    return (static_cast<uint32_t>(u[0]) << 24) | (static_cast<uint32_t>(u[1]) << 16) |
           (static_cast<uint32_t>(u[2]) << 8) | static_cast<uint32_t>(u[3]);
}

}  // namespace

std::string encodeMessage(const Message& message) {
    size_t total = kMessageHeadLen + message.text.size();
    for (const Block& b : message.blocks) total += kBlockHeadLen + b.payload.size();
    std::string out;
    out.reserve(total);
    out.push_back(static_cast<char>(message.magic[0]));
    out.push_back(static_cast<char>(message.magic[1]));
    out.push_back(static_cast<char>(message.magic[2]));
    out.push_back(static_cast<char>(message.kind));
    out.push_back(static_cast<char>(message.dataType >> 8));
    out.push_back(static_cast<char>(message.dataType));
    out.append(10, '\0');
    putBigEndian32(&out,
                   message.declaredJsonLen.value_or(static_cast<uint32_t>(message.text.size())));
    putBigEndian32(&out, message.declaredBlockCount.value_or(
                                 static_cast<uint32_t>(message.blocks.size())));
    for (const Block& b : message.blocks) {
        putBigEndian32(&out, 0);
        putBigEndian32(&out, static_cast<uint32_t>(b.param));
        putBigEndian32(&out, static_cast<uint32_t>(b.declaredLen.value_or(
                                     static_cast<int32_t>(b.payload.size()))));
        out += b.payload;
    }
    out += message.text;
    return out;
}

std::string resultMessage(const std::string& text) {
    Message m;
    m.kind = kKindResult;
    m.text = text;
    return encodeMessage(m);
}

std::string dataMessage(uint16_t dataType, const std::vector<std::string>& payloads,
                        int32_t firstParam) {
    Message m;
    m.kind = kKindData;
    m.dataType = dataType;
    int32_t param = firstParam;
    for (const std::string& p : payloads) {
        Block b;
        b.param = param++;
        b.payload = p;
        m.blocks.push_back(std::move(b));
    }
    return encodeMessage(m);
}

std::string commandFrame(const std::string& text) {
    std::string out(kCommandMagic, sizeof(kCommandMagic));
    putBigEndian32(&out, static_cast<uint32_t>(text.size()));
    out += text;
    return out;
}

void CommandParser::feed(const char* data, size_t len) { mBuffer.append(data, len); }

bool CommandParser::next(Command* command) {
    for (;;) {
        // Resynchronise on the magic; up to three trailing bytes may be its beginning.
        const size_t at = mBuffer.find(std::string(kCommandMagic, sizeof(kCommandMagic)));
        const size_t skip =
                at != std::string::npos ? at : (mBuffer.size() > 3 ? mBuffer.size() - 3 : 0);
        if (skip > 0) {
            mSkipped += skip;
            mBuffer.erase(0, skip);
        }
        if (at == std::string::npos) return false;
        if (mBuffer.size() < kCommandHeadLen) return false;
        const uint32_t len = bigEndian32(mBuffer.data() + 4);
        if (len > kMaxCommandText) {
            ++mSkipped;
            mBuffer.erase(0, 1);
            continue;
        }
        if (mBuffer.size() < kCommandHeadLen + len) return false;
        command->frame = mBuffer.substr(0, kCommandHeadLen + len);
        command->text = mBuffer.substr(kCommandHeadLen, len);
        command->cmdId = jsonInt(command->text, "cmd_id").value_or(-1);
        command->param = jsonInt(command->text, "param");
        mBuffer.erase(0, kCommandHeadLen + len);
        return true;
    }
}

std::optional<int> jsonInt(const std::string& text, const std::string& key) {
    const std::string pattern = "\"" + key + "\":";
    const size_t at = text.find(pattern);
    if (at == std::string::npos) return std::nullopt;
    const char* begin = text.c_str() + at + pattern.size();
    char* end = nullptr;
    const long v = strtol(begin, &end, 10);
    if (end == begin) return std::nullopt;
    return static_cast<int>(v);
}

}  // namespace lumacast::camsim
