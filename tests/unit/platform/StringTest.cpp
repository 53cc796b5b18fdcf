#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/Unicode.h>

#include <lumacast/host/Utf.h>

#include <gtest/gtest.h>

using android::String16;
using android::String8;
using lumacast::host::utf16ToUtf8;
using lumacast::host::utf8ToUtf16;

TEST(StringTest, RoundTripsEveryPlane) {
    // ASCII, two-byte, three-byte and a supplementary character (a surrogate pair).
    const std::string text = "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    std::u16string u16;
    ASSERT_TRUE(utf8ToUtf16(text, &u16));
    EXPECT_EQ((std::u16string{u'A', 0x00E9, 0x20AC, 0xD83D, 0xDE00}), u16);
    std::string back;
    ASSERT_TRUE(utf16ToUtf8(u16, &back));
    EXPECT_EQ(text, back);

    String16 s16(text.c_str());
    EXPECT_EQ(5u, s16.size());
    EXPECT_EQ(text, String8(s16).string());
}

TEST(StringTest, BoundariesOfEachLength) {
    const char32_t points[] = {0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0x10000, 0x10FFFF, 0xD7FF, 0xE000};
    for (char32_t cp : points) {
        std::u16string u16;
        if (cp >= 0x10000) {
            u16 = {static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10)),
                   static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF))};
        } else {
            u16 = {static_cast<char16_t>(cp)};
        }
        std::string u8;
        ASSERT_TRUE(utf16ToUtf8(u16, &u8)) << std::hex << cp;
        std::u16string again;
        ASSERT_TRUE(utf8ToUtf16(u8, &again)) << std::hex << cp;
        EXPECT_EQ(u16, again) << std::hex << cp;
    }
}

TEST(StringTest, InvalidUtf8IsRefused) {
    const std::string bad[] = {
            "\x80",                  // lone continuation byte
            "\xC3",                  // truncated two-byte sequence
            "\xE2\x82",              // truncated three-byte sequence
            "\xC0\xAF",              // overlong '/'
            "\xE0\x80\xAF",          // overlong
            "\xED\xA0\x80",          // surrogate encoded in UTF-8
            "\xF4\x90\x80\x80",      // above U+10FFFF
            "\xFF",                  // never valid
            "ok\xF0\x9F\x98",        // truncated at the end
    };
    for (const auto& s : bad) {
        std::u16string out;
        EXPECT_FALSE(utf8ToUtf16(s, &out)) << testing::PrintToString(s);
        EXPECT_EQ(-1, utf8_to_utf16_length(reinterpret_cast<const uint8_t*>(s.data()), s.size()));
        EXPECT_EQ(0u, String16(s.c_str()).size());
    }
}

TEST(StringTest, UnpairedSurrogatesAreRefused) {
    const std::u16string bad[] = {
            {0xD800}, {0xDC00}, {u'a', 0xD83D}, {0xD83D, u'a'}, {0xDE00, 0xD83D},
    };
    for (const auto& s : bad) {
        std::string out;
        EXPECT_FALSE(utf16ToUtf8(s, &out));
        EXPECT_EQ(-1, utf16_to_utf8_length(s.data(), s.size()));
        EXPECT_TRUE(String8(s.data(), s.size()).isEmpty());
    }
}

TEST(StringTest, CopyHelpersNeverOverrunTheDestination) {
    const std::u16string src = u"hello world";
    char small[6];
    memset(small, 'X', sizeof(small));
    utf16_to_utf8(src.data(), src.size(), small, sizeof(small));
    EXPECT_STREQ("hello", small);

    char16_t dst[4];
    const std::string u8 = "abcdef";
    utf8_to_utf16(reinterpret_cast<const uint8_t*>(u8.data()), u8.size(), dst, 4);
    EXPECT_EQ(std::u16string(u"abc"), std::u16string(dst));
}

TEST(StringTest, FormatAndAppend) {
    String8 s = String8::format("%d-%s", 42, "x");
    s.appendFormat("/%05d", 7);
    s.append("!");
    EXPECT_STREQ("42-x/00007!", s.string());
    String16 a(u"ab");
    a.append(String16(u"cd"));
    EXPECT_EQ(String16("abcd"), a);
}

TEST(StringTest, StaticStringBehavesAsAnyOther) {
    static const android::StaticString16 kStatic(u"a.B");
    String16 copy(kStatic);
    EXPECT_TRUE(copy.isStaticString());
    EXPECT_EQ(copy.string(), kStatic.string());
    EXPECT_EQ(copy, String16("a.B"));
    EXPECT_EQ(3u, copy.size());
    EXPECT_EQ(u'\0', copy.string()[3]);

    // A change gives the copy characters of its own and leaves the constant ones alone.
    ASSERT_EQ(android::OK, copy.append(String16(u"c")));
    EXPECT_FALSE(copy.isStaticString());
    EXPECT_EQ(String16(u"a.Bc"), copy);
    EXPECT_EQ(String16(u"a.B"), kStatic);

    String16 other;
    other.setTo(kStatic);
    ASSERT_EQ(android::OK, other.setTo(other.string() + 2, 1));  // from its own characters
    EXPECT_EQ(String16(u"B"), other);
    EXPECT_FALSE(other.isStaticString());
}
