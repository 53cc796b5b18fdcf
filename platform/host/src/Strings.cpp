#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/Unicode.h>

#include <lumacast/host/Utf.h>

#include <stdio.h>
#include <string.h>

#include <vector>

namespace android {

using lumacast::host::utf16ToUtf8;
using lumacast::host::utf8ToUtf16;

static std::u16string fromUtf8(const char* s, size_t len) {
    std::u16string out;
    if (s == nullptr || !utf8ToUtf16(std::string_view(s, len), &out)) out.clear();
    return out;
}

static std::string fromUtf16(const char16_t* s, size_t len) {
    std::string out;
    if (s != nullptr) utf16ToUtf8(std::u16string_view(s, len), &out);
    return out;
}

String16::String16(const char16_t* o) : mData(o ? o : u"") {}
String16::String16(const char16_t* o, size_t len) : mData(o ? std::u16string(o, len) : u"") {}
String16::String16(const char* o) : mData(o ? fromUtf8(o, strlen(o)) : u"") {}
String16::String16(const char* o, size_t len) : mData(fromUtf8(o, len)) {}
String16::String16(const String8& o) : mData(fromUtf8(o.string(), o.size())) {}

status_t String16::setTo(const String16& other) {
    *this = other;
    return OK;
}

status_t String16::setTo(const char16_t* other, size_t len) {
    if (other == nullptr && len > 0) return BAD_VALUE;
    // Copied before anything is replaced: other may point into this string.
    std::u16string copy(other ? other : u"", len);
    mData = std::move(copy);
    mStatic = nullptr;
    return OK;
}

status_t String16::append(const String16& other) {
    std::u16string joined(view());
    joined.append(other.view());
    mData = std::move(joined);
    mStatic = nullptr;
    return OK;
}

String8::String8(const String16& o) : mData(fromUtf16(o.string(), o.size())) {}
String8::String8(const char16_t* o) : mData(o ? fromUtf16(o, strlen16(o)) : "") {}
String8::String8(const char16_t* o, size_t len) : mData(fromUtf16(o, len)) {}

String8 String8::format(const char* fmt, ...) {
    String8 result;
    va_list args;
    va_start(args, fmt);
    result.appendFormatV(fmt, args);
    va_end(args);
    return result;
}

status_t String8::appendFormat(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const status_t result = appendFormatV(fmt, args);
    va_end(args);
    return result;
}

status_t String8::appendFormatV(const char* fmt, va_list args) {
    va_list copy;
    va_copy(copy, args);
    const int n = vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    if (n < 0) return BAD_VALUE;
    std::vector<char> buf(static_cast<size_t>(n) + 1);
    vsnprintf(buf.data(), buf.size(), fmt, args);
    mData.append(buf.data(), static_cast<size_t>(n));
    return OK;
}

status_t String8::append(const char* other) {
    if (other) mData += other;
    return OK;
}

status_t String8::append(const String8& other) {
    mData += other.mData;
    return OK;
}

status_t String8::setTo(const char* other) {
    mData = other ? other : "";
    return OK;
}

std::string statusToString(status_t s) {
    switch (s) {
        case OK: return "OK";
        case UNKNOWN_ERROR: return "UNKNOWN_ERROR";
        case NO_MEMORY: return "NO_MEMORY";
        case INVALID_OPERATION: return "INVALID_OPERATION";
        case BAD_VALUE: return "BAD_VALUE";
        case BAD_TYPE: return "BAD_TYPE";
        case NAME_NOT_FOUND: return "NAME_NOT_FOUND";
        case PERMISSION_DENIED: return "PERMISSION_DENIED";
        case NO_INIT: return "NO_INIT";
        case ALREADY_EXISTS: return "ALREADY_EXISTS";
        case DEAD_OBJECT: return "DEAD_OBJECT";
        case FAILED_TRANSACTION: return "FAILED_TRANSACTION";
        case BAD_INDEX: return "BAD_INDEX";
        case NOT_ENOUGH_DATA: return "NOT_ENOUGH_DATA";
        case WOULD_BLOCK: return "WOULD_BLOCK";
        case TIMED_OUT: return "TIMED_OUT";
        case UNKNOWN_TRANSACTION: return "UNKNOWN_TRANSACTION";
        case FDS_NOT_ALLOWED: return "FDS_NOT_ALLOWED";
        case UNEXPECTED_NULL: return "UNEXPECTED_NULL";
        default: return "status_t(" + std::to_string(s) + ")";
    }
}

}  // namespace android
