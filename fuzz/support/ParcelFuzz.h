#pragma once

#include <binder/IBinder.h>
#include <binder/Parcel.h>
#include <fcntl.h>
#include <unistd.h>
#include <utils/String16.h>

#include <vector>

#include "fuzz/support/FuzzInput.h"

namespace lumacast::fuzz {

// What a built request starts with, as far as the builder can tell.
enum class Token { kRight, kWrong, kUnknown };

// A descriptor that parcels may carry; duplicated into each parcel that asks for it.
inline int devNull() {
    static const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    return fd;
}

// Writes one item of a type chosen by the input: well-formed values of every type the
// interfaces carry, and the malformed ones a hostile client can send (lying lengths,
// unpaired surrogates, objects where data is expected).
inline void writeItem(FuzzInput& in, android::Parcel* p,
                      const std::vector<android::sp<android::IBinder>>& binders) {
    switch (in.below(11)) {
        case 0:
            p->writeInt32(in.i32());
            break;
        case 1:
            p->writeInt32(static_cast<int32_t>(in.below(3)));  // bools, and one that is not
            break;
        case 2:
            p->writeUtf8AsUtf16(in.text(512));
            break;
        case 3: {
            const std::vector<uint8_t> b = in.run(1024);
            std::vector<char16_t> units(b.size() / 2);
            for (size_t i = 0; i < units.size(); ++i) {
                units[i] = static_cast<char16_t>(b[2 * i] | (b[2 * i + 1] << 8));
            }
            p->writeString16(units.data(), units.size());
            break;
        }
        case 4:
            p->writeInt32(-1);  // null string, null vector
            break;
        case 5: {
            // A length that promises more than follows, up to absurd sizes.
            const uint32_t shapes[] = {in.u32(), 0x7fffffff, 0x80000000, 0x3fffffff, 16};
            p->writeInt32(static_cast<int32_t>(shapes[in.below(5)]));
            const std::vector<uint8_t> b = in.run(64);
            p->write(b.data(), b.size());
            break;
        }
        case 6:
            if (!binders.empty()) p->writeStrongBinder(binders[in.below(binders.size())]);
            break;
        case 7:
            p->writeDupFileDescriptor(devNull());
            break;
        case 8:
            p->writeByteVector(in.run(2048));
            break;
        case 9: {
            const std::vector<uint8_t> b = in.run(64);
            p->writeUnpadded(b.data(), b.size());
            break;
        }
        default:
            p->writeBool(in.flag());
            break;
    }
}

// Fills a request parcel: either raw bytes, or an interface token (right, wrong, missing
// or damaged) followed by typed items. binders may hold null entries.
inline Token buildRequest(FuzzInput& in, android::Parcel* p, const android::String16& descriptor,
                          const std::vector<android::sp<android::IBinder>>& binders) {
    Token token = Token::kUnknown;
    switch (in.below(8)) {
        case 0: {
            const std::vector<uint8_t> raw = in.rest();
            p->setData(raw.data(), raw.size());
            p->setDataPosition(0);
            return Token::kUnknown;
        }
        case 1:
            p->writeInterfaceToken(android::String16(u"kora.lumacast.ILumacastCallback"));
            token = Token::kWrong;
            break;
        case 2: {
            // The right descriptor with a unit changed, or cut short.
            std::u16string name(descriptor.c_str(), descriptor.size());
            if (!name.empty()) {
                if (in.flag()) {
                    name[in.below(name.size())] ^= static_cast<char16_t>(1 + in.below(0xffff));
                } else {
                    name.resize(in.below(name.size()));
                }
            }
            p->writeInterfaceToken(name.data(), name.size());
            token = Token::kWrong;
            break;
        }
        case 3:
            // No token at all; whatever follows is read as one.
            break;
        default:
            p->writeInterfaceToken(descriptor);
            token = Token::kRight;
            break;
    }
    for (int i = 0; i < 8 && !in.empty(); ++i) writeItem(in, p, binders);
    p->setDataPosition(0);
    return token;
}

}  // namespace lumacast::fuzz
