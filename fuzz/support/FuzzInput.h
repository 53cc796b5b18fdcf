#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>
#include <vector>

namespace lumacast::fuzz {

// Hands out a fuzzer's bytes as the values a target needs. Once the bytes run out every
// value reads as zero, so a short input still runs to completion.
class FuzzInput {
  public:
    FuzzInput(const uint8_t* data, size_t size) : mData(data), mSize(size) {}

    size_t remaining() const { return mSize - mPos; }
    bool empty() const { return mPos >= mSize; }

    uint8_t byte() { return empty() ? 0 : mData[mPos++]; }
    bool flag() { return (byte() & 1) != 0; }
    // A value below n (n > 0).
    uint32_t below(uint32_t n) { return n == 0 ? 0 : u32() % n; }
    uint32_t u32() {
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v = (v << 8) | byte();
        return v;
    }
    int32_t i32() { return static_cast<int32_t>(u32()); }

    // Up to n bytes.
    std::vector<uint8_t> bytes(size_t n) {
        if (n > remaining()) n = remaining();
        std::vector<uint8_t> out(mData + mPos, mData + mPos + n);
        mPos += n;
        return out;
    }
    // A run whose length is taken from the input first, at most max.
    std::vector<uint8_t> run(size_t max) {
        size_t n = (static_cast<size_t>(byte()) << 8) | byte();
        return bytes(max == 0 ? 0 : n % (max + 1));
    }
    std::string text(size_t max) {
        const std::vector<uint8_t> b = run(max);
        return std::string(b.begin(), b.end());
    }
    std::vector<uint8_t> rest() { return bytes(remaining()); }

  private:
    const uint8_t* mData;
    size_t mSize;
    size_t mPos = 0;
};

}  // namespace lumacast::fuzz
