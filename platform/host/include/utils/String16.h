#pragma once

#include <stddef.h>

#include <optional>
#include <string>
#include <string_view>

#include <utils/Errors.h>

namespace android {

class String8;

template <size_t N>
class StaticString16;

// UTF-16 string as libutils has it. Built from invalid UTF-8 it is empty, as in AOSP.
//
// A StaticString16 holds its characters in itself, as constant data set up before any code
// runs; a String16 copied from it shares them (they are never released), and only a change
// makes a String16 hold a copy of its own.
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

    const char16_t* string() const { return c_str(); }
    const char16_t* c_str() const {
        return mStatic != nullptr ? mStatic : mData ? mData->c_str() : u"";
    }
    size_t size() const { return view().size(); }
    bool empty() const { return size() == 0; }

    status_t setTo(const String16& other);
    status_t setTo(const char16_t* other, size_t len);
    status_t append(const String16& other);

    bool operator==(const String16& o) const { return view() == o.view(); }
    bool operator!=(const String16& o) const { return view() != o.view(); }
    bool operator<(const String16& o) const { return view() < o.view(); }

    std::u16string u16() const { return std::u16string(view()); }

    // Whether the characters are a StaticString16's. Public for tests, as in libutils.
    bool isStaticString() const { return mStatic != nullptr; }

    template <size_t N>
    explicit constexpr String16(const StaticString16<N>& s)
        : mStatic(s.mStatic), mStaticSize(s.mStaticSize) {}

protected:
    template <size_t N>
    struct StaticData {
        char16_t data[N];
    };

    template <size_t N>
    static constexpr StaticData<N> makeStaticData(const char16_t (&s)[N]) {
        StaticData<N> r{};
        for (size_t i = 0; i < N; ++i) r.data[i] = s[i];
        return r;
    }

    // Only the address of the storage is taken: StaticString16 fills it after this runs.
    template <size_t N>
    explicit constexpr String16(const StaticData<N>& s) : mStatic(s.data), mStaticSize(N - 1) {}

private:
    std::u16string_view view() const {
        if (mStatic != nullptr) return {mStatic, mStaticSize};
        return mData ? std::u16string_view(*mData) : std::u16string_view();
    }

    // A StaticString16's characters, or null while mData (when set) holds them. mData is an
    // optional so that a String16 can be constant-initialised.
    const char16_t* mStatic = nullptr;
    size_t mStaticSize = 0;
    std::optional<std::u16string> mData;
};

// A String16 whose characters are constant data inside the object. Meant for objects of
// static storage duration (interface descriptors): a String16 copied from one must not
// outlive it. Never part of an API; use String16 there.
template <size_t N>
class StaticString16 : public String16 {
public:
    constexpr StaticString16(const char16_t (&s)[N])
        : String16(mStorage), mStorage(makeStaticData(s)) {}
    constexpr StaticString16(const StaticString16<N>& other)
        : String16(mStorage), mStorage(other.mStorage) {}
    StaticString16(const StaticString16<N>&&) = delete;

    static void* operator new(size_t) = delete;

private:
    const StaticData<N> mStorage;
};

template <typename F>
StaticString16(const F&) -> StaticString16<sizeof(F) / sizeof(char16_t)>;

}  // namespace android
