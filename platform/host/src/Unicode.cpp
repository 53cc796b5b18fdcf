#define LOG_TAG "unicode"

#include <utils/Unicode.h>

#include <limits.h>
#include <log/log.h>

#include <lumacast/host/Utf.h>

#include <initializer_list>

// The conversions follow libutils byte for byte, leniencies included: UTF-8 is decoded by
// its leading byte alone (continuation bytes are not checked, overlong forms, encoded
// surrogates and values above U+10FFFF pass), and unpaired UTF-16 surrogates are dropped.
// Only a sequence that runs past the end of the input is refused. Where libutils would
// abort on a destination that is too small, these stop short and still terminate.

namespace {

bool isAnySurrogate(char16_t w) { return (w & 0xf800) == 0xd800; }

bool isSurrogatePair(char16_t w1, char16_t w2) {
    return (w1 & 0xfc00) == 0xd800 && (w2 & 0xfc00) == 0xdc00;
}

// Bytes a sequence takes by its leading byte; a stray continuation byte stands alone and
// 0xf8..0xff lead four bytes like 0xf0..0xf7.
size_t utf8SequenceLength(uint8_t c) {
    if (c < 0xc0) return 1;
    if (c < 0xe0) return 2;
    if (c < 0xf0) return 3;
    return 4;
}

char32_t utf8Decode(const uint8_t* in, size_t n) {
    switch (n) {
        case 1:
            return in[0];
        case 2:
            return ((in[0] & 0x1f) << 6) | (in[1] & 0x3f);
        case 3:
            return ((in[0] & 0x0f) << 12) | ((in[1] & 0x3f) << 6) | (in[2] & 0x3f);
        default:
            return ((in[0] & 0x07) << 18) | ((in[1] & 0x3f) << 12) | ((in[2] & 0x3f) << 6) |
                   (in[3] & 0x3f);
    }
}

}  // namespace

ssize_t utf8_to_utf16_length(const uint8_t* src, size_t srcLen, bool overreadIsFatal) {
    if (src == nullptr) return -1;
    size_t in = 0;
    size_t units = 0;
    while (in < srcLen) {
        const size_t n = utf8SequenceLength(src[in]);
        if (n > srcLen - in) {
            if (overreadIsFatal) {
                LOG_ALWAYS_FATAL("Attempt to overread computing length of utf8 string");
            }
            return -1;
        }
        units += (n == 4 && utf8Decode(src + in, n) >= 0x10000) ? 2 : 1;
        in += n;
    }
    return units < SSIZE_MAX ? static_cast<ssize_t>(units) : -1;
}

char16_t* utf8_to_utf16_no_null_terminator(const uint8_t* src, size_t srcLen, char16_t* dst,
                                           size_t dstLen) {
    if (src == nullptr || srcLen == 0 || dst == nullptr || dstLen == 0) return dst;
    size_t in = 0;
    char16_t* out = dst;
    char16_t* const outEnd = dst + dstLen;
    while (in < srcLen && out < outEnd) {
        const size_t n = utf8SequenceLength(src[in]);
        if (n > srcLen - in) break;  // an unended sequence ends the text
        const char32_t w = utf8Decode(src + in, n);
        in += n;
        if (w < 0x10000) {
            *out++ = static_cast<char16_t>(w);
        } else {
            if (outEnd - out < 2) break;
            *out++ = static_cast<char16_t>(((w - 0x10000) >> 10) + 0xd800);
            *out++ = static_cast<char16_t>(((w - 0x10000) & 0x3ff) + 0xdc00);
        }
    }
    return out;
}

char16_t* utf8_to_utf16(const uint8_t* src, size_t srcLen, char16_t* dst, size_t dstLen) {
    // dstLen counts the terminator, as in libutils.
    if (dst == nullptr || dstLen == 0) return dst;
    char16_t* const end = utf8_to_utf16_no_null_terminator(src, srcLen, dst, dstLen - 1);
    *end = 0;
    return end;
}

ssize_t utf16_to_utf8_length(const char16_t* src, size_t src_len) {
    if (src == nullptr || src_len == 0) return -1;
    size_t bytes = 0;
    for (size_t i = 0; i < src_len; ++i) {
        const char16_t w = src[i];
        if (w < 0x80) {
            bytes += 1;
        } else if (w < 0x800) {
            bytes += 2;
        } else if (!isAnySurrogate(w)) {
            bytes += 3;
        } else if (i + 1 < src_len && isSurrogatePair(w, src[i + 1])) {
            bytes += 4;
            ++i;
        }
        // An unpaired surrogate adds nothing.
    }
    return bytes < SSIZE_MAX ? static_cast<ssize_t>(bytes) : -1;
}

void utf16_to_utf8(const char16_t* src, size_t src_len, char* dst, size_t dst_len) {
    if (src == nullptr || src_len == 0 || dst == nullptr || dst_len == 0) return;
    char* out = dst;
    // Room for the terminator is kept back.
    char* const outEnd = dst + dst_len - 1;
    auto put = [&](std::initializer_list<unsigned> bytes) {
        if (static_cast<size_t>(outEnd - out) < bytes.size()) return false;
        for (unsigned b : bytes) *out++ = static_cast<char>(b);
        return true;
    };
    for (size_t i = 0; i < src_len; ++i) {
        const char16_t w = src[i];
        bool fits = true;
        if (w < 0x80) {
            fits = put({w});
        } else if (w < 0x800) {
            fits = put({0xc0u | ((w >> 6) & 0x1f), 0x80u | (w & 0x3f)});
        } else if (!isAnySurrogate(w)) {
            fits = put({0xe0u | ((w >> 12) & 0xf), 0x80u | ((w >> 6) & 0x3f), 0x80u | (w & 0x3f)});
        } else if (i + 1 < src_len && isSurrogatePair(w, src[i + 1])) {
            const char32_t dw = 0x10000 + ((w - 0xd800) << 10) + (src[i + 1] - 0xdc00);
            fits = put({0xf0u | ((dw >> 18) & 0x07), 0x80u | ((dw >> 12) & 0x3f),
                        0x80u | ((dw >> 6) & 0x3f), 0x80u | (dw & 0x3f)});
            ++i;
        }
        if (!fits) break;
    }
    *out = '\0';
}

size_t strlen16(const char16_t* s) {
    size_t n = 0;
    while (s[n]) ++n;
    return n;
}

namespace lumacast::host {

bool utf8ToUtf16(std::string_view in, std::u16string* out) {
    const auto* const src = reinterpret_cast<const uint8_t*>(in.data());
    const ssize_t units = utf8_to_utf16_length(src, in.size());
    if (units < 0) return false;
    out->assign(static_cast<size_t>(units) + 1, u'\0');
    utf8_to_utf16(src, in.size(), out->data(), out->size());
    out->pop_back();
    return true;
}

void utf16ToUtf8(std::u16string_view in, std::string* out) {
    out->clear();
    const ssize_t bytes = utf16_to_utf8_length(in.data(), in.size());
    if (bytes <= 0) return;
    out->assign(static_cast<size_t>(bytes) + 1, '\0');
    utf16_to_utf8(in.data(), in.size(), out->data(), out->size());
    out->pop_back();
}

}  // namespace lumacast::host
