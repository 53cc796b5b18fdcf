#include "tools/camsim/Recording.h"

#include <errno.h>
#include <string.h>

#include <fstream>
#include <sstream>

namespace lumacast::camsim {

namespace {

// The link never announces more blocks in a message.
constexpr int32_t kMaxBlockCount = 65536;

void putLittle(std::string* out, uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) out->push_back(static_cast<char>(v >> (8 * i)));
}

uint64_t little(const char* p, int bytes) {
    uint64_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = (v << 8) | static_cast<uint8_t>(p[i]);
    return v;
}

}  // namespace

std::string Recording::encode(const RecordedCallback& record) {
    std::string out;
    out.reserve(kHeaderLen + record.data.size());
    putLittle(&out, record.kind, 4);
    putLittle(&out, static_cast<uint32_t>(record.blockCount), 4);
    putLittle(&out, static_cast<uint32_t>(record.blockParam), 4);
    putLittle(&out, record.offsetUs, 8);
    putLittle(&out, record.data.size(), 4);
    return out + record.data;
}

bool Recording::decode(const std::string& bytes, std::vector<RecordedCallback>* records,
                       std::string* why) {
    records->clear();
    if (bytes.compare(0, kMagicLen, kMagic, kMagicLen) != 0) {
        *why = "not a recording (it does not start with " + std::string(kMagic) + ")";
        return false;
    }
    size_t at = kMagicLen;
    while (at < bytes.size()) {
        const std::string where = "record " + std::to_string(records->size() + 1);
        if (bytes.size() - at < kHeaderLen) {
            *why = where + ": truncated header";
            return false;
        }
        const char* h = bytes.data() + at;
        RecordedCallback r;
        r.kind = static_cast<uint32_t>(little(h, 4));
        r.blockCount = static_cast<int32_t>(little(h + 4, 4));
        r.blockParam = static_cast<int32_t>(little(h + 8, 4));
        r.offsetUs = little(h + 12, 8);
        const uint64_t len = little(h + 20, 4);
        if (r.kind < kTypeAiJson || r.kind > kTypeFrame) {
            *why = where + ": unknown kind " + std::to_string(r.kind);
            return false;
        }
        if (len > kMaxDataLen || len > bytes.size() - at - kHeaderLen) {
            *why = where + ": length " + std::to_string(len) + " runs past the end";
            return false;
        }
        if (r.offsetUs > kMaxOffsetUs) {
            *why = where + ": more than a year after the start";
            return false;
        }
        if (!records->empty() && r.offsetUs < records->back().offsetUs) {
            *why = where + ": time goes backwards";
            return false;
        }
        r.data = bytes.substr(at + kHeaderLen, len);
        records->push_back(std::move(r));
        at += kHeaderLen + len;
    }
    return true;
}

bool Recording::load(const std::string& path, std::vector<RecordedCallback>* records,
                     std::string* why) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        *why = path + ": " + strerror(errno);
        return false;
    }
    std::ostringstream bytes;
    bytes << in.rdbuf();
    if (!decode(bytes.str(), records, why)) {
        *why = path + ": " + *why;
        return false;
    }
    return true;
}

std::vector<TimedMessage> Recording::toMessages(const std::vector<RecordedCallback>& records) {
    std::vector<TimedMessage> out;
    const uint64_t first = records.empty() ? 0 : records.front().offsetUs;
    for (size_t i = 0; i < records.size();) {
        const RecordedCallback& r = records[i];
        Message m;
        m.dataType = static_cast<uint16_t>(r.kind);
        if (r.kind != kTypeFrame) {
            m.blocks.push_back({0, r.data, std::nullopt});
            ++i;
        } else {
            // A block count the link could not have announced comes back as one block each.
            const int32_t count =
                    r.blockCount >= 1 && r.blockCount <= kMaxBlockCount ? r.blockCount : 1;
            while (i < records.size() && m.blocks.size() < static_cast<size_t>(count) &&
                   records[i].kind == kTypeFrame && records[i].blockCount == r.blockCount) {
                m.blocks.push_back({records[i].blockParam, records[i].data, std::nullopt});
                ++i;
            }
            m.blocks.resize(static_cast<size_t>(count));
        }
        out.push_back({r.offsetUs - first, encodeMessage(m)});
    }
    return out;
}

}  // namespace lumacast::camsim
