#include <utils/Unicode.h>

#include <lumacast/host/Utf.h>

#include <string.h>

namespace lumacast::host {

namespace {

// Decodes one code point starting at in[i]; returns false on any malformed sequence.
bool decodeUtf8(std::string_view in, size_t& i, char32_t* cp) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(in[k]); };
    const unsigned char b0 = byte(i);
    size_t extra;
    char32_t value;
    char32_t min;
    if (b0 < 0x80) {
        *cp = b0;
        ++i;
        return true;
    } else if ((b0 & 0xE0) == 0xC0) {
        extra = 1;
        value = b0 & 0x1F;
        min = 0x80;
    } else if ((b0 & 0xF0) == 0xE0) {
        extra = 2;
        value = b0 & 0x0F;
        min = 0x800;
    } else if ((b0 & 0xF8) == 0xF0) {
        extra = 3;
        value = b0 & 0x07;
        min = 0x10000;
    } else {
        return false;
    }
    if (in.size() - i <= extra) return false;
    for (size_t k = 1; k <= extra; ++k) {
        const unsigned char b = byte(i + k);
        if ((b & 0xC0) != 0x80) return false;
        value = (value << 6) | (b & 0x3F);
    }
    if (value < min || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return false;
    *cp = value;
    i += extra + 1;
    return true;
}

void encodeUtf8(char32_t cp, std::string* out) {
    if (cp < 0x80) {
        out->push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out->push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out->push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out->push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out->push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

}  // namespace

bool utf8ToUtf16(std::string_view in, std::u16string* out) {
    out->clear();
    out->reserve(in.size());
    size_t i = 0;
    while (i < in.size()) {
        char32_t cp;
        if (!decodeUtf8(in, i, &cp)) return false;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out->push_back(static_cast<char16_t>(0xD800 | (cp >> 10)));
            out->push_back(static_cast<char16_t>(0xDC00 | (cp & 0x3FF)));
        } else {
            out->push_back(static_cast<char16_t>(cp));
        }
    }
    return true;
}

bool utf16ToUtf8(std::u16string_view in, std::string* out) {
    out->clear();
    out->reserve(in.size());
    for (size_t i = 0; i < in.size(); ++i) {
        const char16_t u = in[i];
        if (u >= 0xD800 && u <= 0xDBFF) {
            if (i + 1 >= in.size() || in[i + 1] < 0xDC00 || in[i + 1] > 0xDFFF) return false;
            const char32_t cp = 0x10000 + ((static_cast<char32_t>(u - 0xD800) << 10) |
                                           static_cast<char32_t>(in[i + 1] - 0xDC00));
            encodeUtf8(cp, out);
            ++i;
        } else if (u >= 0xDC00 && u <= 0xDFFF) {
            return false;
        } else {
            encodeUtf8(u, out);
        }
    }
    return true;
}

}  // namespace lumacast::host

using lumacast::host::utf16ToUtf8;
using lumacast::host::utf8ToUtf16;

ssize_t utf8_to_utf16_length(const uint8_t* src, size_t srcLen, bool) {
    std::u16string out;
    if (src == nullptr ||
        !utf8ToUtf16(std::string_view(reinterpret_cast<const char*>(src), srcLen), &out)) {
        return -1;
    }
    return static_cast<ssize_t>(out.size());
}

char16_t* utf8_to_utf16(const uint8_t* src, size_t srcLen, char16_t* dst, size_t dstLen) {
    std::u16string out;
    if (dst == nullptr || dstLen == 0) return dst;
    if (src == nullptr ||
        !utf8ToUtf16(std::string_view(reinterpret_cast<const char*>(src), srcLen), &out)) {
        out.clear();
    }
    // dstLen counts the terminator, as in libutils.
    const size_t n = out.size() < dstLen ? out.size() : dstLen - 1;
    memcpy(dst, out.data(), n * sizeof(char16_t));
    dst[n] = 0;
    return dst + n;
}

ssize_t utf16_to_utf8_length(const char16_t* src, size_t src_len) {
    std::string out;
    if (src == nullptr || src_len == 0) return -1;
    if (!utf16ToUtf8(std::u16string_view(src, src_len), &out)) return -1;
    return static_cast<ssize_t>(out.size());
}

void utf16_to_utf8(const char16_t* src, size_t src_len, char* dst, size_t dst_len) {
    std::string out;
    if (dst == nullptr || dst_len == 0) return;
    if (src == nullptr || !utf16ToUtf8(std::u16string_view(src, src_len), &out)) out.clear();
    const size_t n = out.size() < dst_len ? out.size() : dst_len - 1;
    memcpy(dst, out.data(), n);
    dst[n] = 0;
}

size_t strlen16(const char16_t* s) {
    size_t n = 0;
    while (s[n]) ++n;
    return n;
}
