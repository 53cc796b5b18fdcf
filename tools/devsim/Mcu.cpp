#include "tools/devsim/Mcu.h"

#include <string.h>
#include <zlib.h>

#include <algorithm>

namespace lumacast::devsim {

namespace {

uint32_t le32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

uint16_t le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

void putLe32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

// Copies a reply into the caller's read buffer; bytes beyond the reply read as zero.
void answer(const uint8_t* reply, size_t replyLen, uint8_t* out, size_t len) {
    memset(out, 0, len);
    if (replyLen > 0) memcpy(out, reply, std::min(len, replyLen));
}

}  // namespace

uint32_t crc32Of(const uint8_t* data, size_t len) {
    return static_cast<uint32_t>(crc32(0, data, static_cast<uInt>(len)));
}

// ---- BirchMcu --------------------------------------------------------------------------

void BirchMcu::reset() { *this = BirchMcu(); }

void BirchMcu::acknowledge(uint8_t kid, uint8_t status) {
    mAckPending = true;
    mAckKid = kid;
    mAckStatus = status;
}

uint8_t BirchMcu::computedStatus() const {
    if (!finished) return 0;
    if (badFrames > 0) return 3;
    if (static_cast<int>(image.size()) != infoTotalSize || packages != infoTotalPackages) {
        return 2;
    }
    return 1;
}

bool BirchMcu::write(const uint8_t* data, size_t len) {
    if (len < 1 || data[0] != 0x20) return true;
    const uint8_t* frame = data + 1;
    const size_t flen = len - 1;
    frames.emplace_back(frame, frame + flen);
    const bool valid = flen >= 8 && frame[0] == 0x55 && le16(frame + 1) == flen - 3 &&
                       crc32Of(frame + 3, flen - 7) == le32(frame + flen - 4);
    const uint8_t kid = flen >= 4 ? frame[3] : 0;
    if (!valid) {
        ++badFrames;
        acknowledge(kid, 1);
        return true;
    }
    const uint8_t* payload = frame + 4;
    const size_t n = flen - 8;
    switch (kid) {
        case 1:
            ++requests;
            image.clear();
            packages = 0;
            badFrames = 0;
            finished = false;
            infoTotalSize = infoTotalPackages = -1;
            mStatusIndex = 0;
            statusPolls = 0;
            acknowledge(kid, 0);
            break;
        case 2:
            if (requests == 0 || n != 4) {
                acknowledge(kid, 1);
                break;
            }
            infoTotalSize = le16(payload);
            infoTotalPackages = le16(payload + 2);
            acknowledge(kid, 0);
            break;
        case 3:
            if (infoTotalSize < 0 || n == 0 || n > 1024) {
                acknowledge(kid, 1);
                break;
            }
            image.insert(image.end(), payload, payload + n);
            ++packages;
            acknowledge(kid, 0);
            break;
        case 4:
            finished = true;
            acknowledge(kid, 0);
            break;
        default:
            acknowledge(kid, 1);
            break;
    }
    return true;
}

bool BirchMcu::read(uint8_t reg, uint8_t* out, size_t len) {
    uint8_t reply[9] = {};
    switch (reg) {
        case 0x10: {
            reply[0] = versionMarker;
            reply[2] = 0x06;
            reply[3] = static_cast<uint8_t>(version);
            reply[4] = static_cast<uint8_t>(version >> 8);
            uint32_t crc = crc32Of(reply + 3, 2);
            if (versionBadCrc) {
                crc ^= 0x1;
                ++badVersionReplies;
            }
            putLe32(reply + 5, crc);
            answer(reply, 9, out, len);
            return true;
        }
        case 0x21: {
            ++ackReads;
            if (!mAckPending) {
                answer(reply, 0, out, len);
                return true;
            }
            reply[0] = 0x55;
            reply[2] = 0x06;
            reply[3] = mAckKid;
            reply[4] = mAckStatus;
            bool badCrc = false;
            const int seen = mAcksSeen[mAckKid]++;
            for (AckFault& f : ackFaults) {
                if ((f.kid != 0 && f.kid != mAckKid) || f.count == 0 || seen < f.skip) continue;
                if (f.count > 0) --f.count;
                ++f.fired;
                if (f.head >= 0) reply[0] = static_cast<uint8_t>(f.head);
                if (f.echoKid >= 0) reply[3] = static_cast<uint8_t>(f.echoKid);
                if (f.status >= 0) reply[4] = static_cast<uint8_t>(f.status);
                badCrc = f.badCrc;
                break;
            }
            // The MCU signs what it sends, so a changed kid or status still carries a good
            // CRC unless the fault asks for a bad one.
            uint32_t crc = crc32Of(reply + 3, 2);
            if (badCrc) crc = ~crc;
            putLe32(reply + 5, crc);
            answer(reply, 9, out, len);
            return true;
        }
        case 0x30: {
            ++statusPolls;
            uint8_t status = computedStatus();
            if (!statusReplies.empty()) {
                status = statusReplies[std::min(mStatusIndex, statusReplies.size() - 1)];
                ++mStatusIndex;
            }
            reply[0] = statusBadHead ? 0x5A : 0x55;
            reply[2] = 0x05;
            reply[3] = status;
            uint32_t crc = crc32Of(reply + 3, 1);
            if (statusBadCrc) crc = ~crc;
            if (statusBadHead || statusBadCrc) ++badStatusReplies;
            putLe32(reply + 4, crc);
            answer(reply, 8, out, len);
            return true;
        }
        default:
            answer(reply, 0, out, len);
            return true;
    }
}

// ---- CedarMcu --------------------------------------------------------------------------

void CedarMcu::reset() { *this = CedarMcu(); }

namespace {

// Length field L, L payload bytes, CRC-32 of length and payload.
bool validFrame(const uint8_t* frame, size_t flen) {
    if (flen < 6) return false;
    const size_t l = le16(frame);
    return flen == l + 6 && crc32Of(frame, l + 2) == le32(frame + l + 2);
}

bool isRequestFrame(const uint8_t* frame, size_t flen) {
    return flen == 7 && validFrame(frame, flen) && frame[0] == 1 && frame[1] == 0 &&
           frame[2] == 0x51;
}

}  // namespace

bool CedarMcu::complete() const {
    if (!mInfoAccepted || infoTotalPackages <= 0) return false;
    size_t total = 0;
    for (uint32_t k = 1; k <= infoTotalPackages; ++k) {
        auto it = received.find(k);
        if (it == received.end()) return false;
        total += it->second.size();
    }
    return static_cast<int64_t>(total) == infoTotalSize;
}

std::vector<uint8_t> CedarMcu::image() const {
    std::vector<uint8_t> out;
    for (const auto& [k, data] : received) out.insert(out.end(), data.begin(), data.end());
    return out;
}

bool CedarMcu::write(const uint8_t* data, size_t len) {
    if (len < 1) return true;
    const uint8_t reg = data[0];
    const uint8_t* frame = data + 1;
    const size_t flen = len - 1;
    switch (reg) {
        case 0x23:
            if (flen >= 1) commands.push_back(frame[0]);
            return true;
        case 0xE0:
            ++requests;
            if (!isRequestFrame(frame, flen)) {
                ++badFrames;
                return true;
            }
            mReady = false;
            requestPolls = 0;
            mInfoAccepted = false;
            mInfoAnswer = 0;
            infoTotalSize = infoTotalPackages = -1;
            received.clear();
            finished = false;
            return true;
        case 0xE2:
            if (flen != 14 || !validFrame(frame, flen) || le16(frame) != 8 || requests == 0) {
                ++badFrames;
                mInfoAnswer = kRefused;
                return true;
            }
            if (infoRejects > 0) {
                --infoRejects;
                ++infoRefused;
                mInfoAnswer = kRefused;
                return true;
            }
            infoTotalSize = le32(frame + 2);
            infoTotalPackages = le32(frame + 6);
            mInfoAccepted = true;
            mInfoAnswer = kAccepted;
            return true;
        case 0xE4: {
            packageFrames.emplace_back(frame, frame + flen);
            uint32_t k = flen >= 8 ? le32(frame + 4) : 0;
            uint8_t status = kRefused;
            const size_t n = flen >= 4 ? le16(frame + 2) : 0;
            if (!validFrame(frame, flen) || n == 0 || n > 256 || le16(frame) != n + 6) {
                ++badFrames;
            } else if (mInfoAccepted && k >= 1 && k <= infoTotalPackages) {
                int& rejects = packageRejects[k];
                if (rejects > 0) {
                    --rejects;
                    ++packagesRefused[k];
                } else {
                    received[k].assign(frame + 8, frame + 8 + n);
                    status = kAccepted;
                }
            }
            putLe32(mPackageAnswer, k);
            mPackageAnswer[4] = status;
            return true;
        }
        case 0xE6:
            ++finishes;
            if (!isRequestFrame(frame, flen)) {
                ++badFrames;
                mFinishAnswer = kRefused;
            } else if (finishRejects > 0) {
                --finishRejects;
                ++finishRefused;
                mFinishAnswer = kRefused;
            } else if (complete()) {
                finished = true;
                mFinishAnswer = kAccepted;
            } else {
                mFinishAnswer = kRefused;
            }
            return true;
        default:
            return true;
    }
}

bool CedarMcu::read(uint8_t reg, uint8_t* out, size_t len) {
    switch (reg) {
        case 0x16: {
            uint8_t text[18] = {};
            memcpy(text, version.data(), std::min(version.size(), sizeof(text)));
            answer(text, sizeof(text), out, len);
            return true;
        }
        case 0x21:
            answer(&state, 1, out, len);
            return true;
        case 0x22:
            answer(&riseTime, 1, out, len);
            return true;
        case 0xE1: {
            uint8_t a = 0;
            if (requests > 0) {
                ++requestPolls;
                if (readyAfterPolls >= 0 && requestPolls > readyAfterPolls) mReady = true;
                a = mReady ? kAccepted : 0;
                if (!mReady) ++busyAnswers;
            }
            answer(&a, 1, out, len);
            return true;
        }
        case 0xE3:
            answer(&mInfoAnswer, 1, out, len);
            return true;
        case 0xE5:
            answer(mPackageAnswer, sizeof(mPackageAnswer), out, len);
            return true;
        case 0xE7: {
            const uint8_t a[2] = {mFinishAnswer, 0};
            answer(a, 2, out, len);
            return true;
        }
        default:
            answer(nullptr, 0, out, len);
            return true;
    }
}

}  // namespace lumacast::devsim
