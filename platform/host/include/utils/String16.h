#pragma once

#include <string>

#include <utils/Errors.h>

namespace android {

class String8;

// UTF-16 string as libutils has it. Built from invalid UTF-8 it is empty, as in AOSP.
class String16 {
public:
    String16() = default;
    String16(const String16&) = default;
    String16(String16&&) = default;
    explicit String16(const char16_t* o);
    String16(const char16_t* o, size_t len);
    explicit String16(const char* o);
    String16(const char* o, size_t len);
    explicit String16(const String8& o);
    explicit String16(std::u16string s) : mData(std::move(s)) {}

    String16& operator=(const String16&) = default;
    String16& operator=(String16&&) = default;

    const char16_t* string() const { return mData.c_str(); }
    const char16_t* c_str() const { return mData.c_str(); }
    size_t size() const { return mData.size(); }
    bool empty() const { return mData.empty(); }

    status_t setTo(const String16& other);
    status_t setTo(const char16_t* other, size_t len);
    status_t append(const String16& other);

    bool operator==(const String16& o) const { return mData == o.mData; }
    bool operator!=(const String16& o) const { return mData != o.mData; }
    bool operator<(const String16& o) const { return mData < o.mData; }

    const std::u16string& u16() const { return mData; }

private:
    std::u16string mData;
};

}  // namespace android
