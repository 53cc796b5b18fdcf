#pragma once

#include <stdarg.h>

#include <string>

#include <utils/Errors.h>

namespace android {

class String16;

// UTF-8 string as libutils has it. Built from invalid UTF-16 it is empty, as in AOSP.
class String8 {
public:
    String8() = default;
    String8(const String8&) = default;
    String8(String8&&) = default;
    explicit String8(const char* o) : mData(o ? o : "") {}
    String8(const char* o, size_t len) : mData(o ? std::string(o, len) : std::string()) {}
    explicit String8(const String16& o);
    explicit String8(const char16_t* o);
    String8(const char16_t* o, size_t len);

    String8& operator=(const String8&) = default;
    String8& operator=(String8&&) = default;

    static String8 format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    status_t appendFormat(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    status_t appendFormatV(const char* fmt, va_list args);
    status_t append(const char* other);
    status_t append(const String8& other);
    status_t setTo(const char* other);

    const char* string() const { return mData.c_str(); }
    const char* c_str() const { return mData.c_str(); }
    size_t size() const { return mData.size(); }
    size_t length() const { return mData.size(); }
    size_t bytes() const { return mData.size(); }
    bool isEmpty() const { return mData.empty(); }
    void clear() { mData.clear(); }

    bool operator==(const String8& o) const { return mData == o.mData; }
    bool operator!=(const String8& o) const { return mData != o.mData; }
    bool operator<(const String8& o) const { return mData < o.mData; }

private:
    std::string mData;
};

}  // namespace android
