#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/Unicode.h>

#include <lumacast/host/Utf.h>

#include <gtest/gtest.h>

using android::String16;
using android::String8;
using lumacast::host::utf16ToUtf8;
using lumacast::host::utf8ToUtf16;

TEST(StringTest, RoundTripsEveryPlaneAndTheBoundariesOfEachLength) {
    // ASCII, two-byte, three-byte and a supplementary character (a surrogate pair).
    const std::string text = "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    std::u16string u16;
    ASSERT_TRUE(utf8ToUtf16(text, &u16));
    EXPECT_EQ((std::u16string{u'A', 0x00E9, 0x20AC, 0xD83D, 0xDE00}), u16);
    String16 s16(text.c_str());
    EXPECT_EQ(5u, s16.size());
    EXPECT_EQ(text, String8(s16).string());

    const char32_t points[] = {0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0x10000, 0x10FFFF, 0xD7FF, 0xE000};
    for (char32_t cp : points) {
        if (cp >= 0x10000) {
            u16 = {static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10)),
                   static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF))};
        } else {
            u16 = {static_cast<char16_t>(cp)};
        }
        std::string u8;
        utf16ToUtf8(u16, &u8);
        std::u16string again;
        ASSERT_TRUE(utf8ToUtf16(u8, &again)) << std::hex << cp;
        EXPECT_EQ(u16, again) << std::hex << cp;
    }
}

// Expected values: libutils Unicode.cpp, utf8_to_utf16_length and utf8_to_utf16 (Android 12):
// the leading byte alone sets the length, continuation bytes are masked, not checked, and
// only a sequence that runs past the end is refused.
TEST(StringTest, Utf8ConvertsAsLibutilsDoes) {
    struct Case {
        const char* what;
        std::string in;
        std::u16string out;
    };
    const Case cases[] = {
            {"stray continuation byte", "\x80", {0x0080}},
            {"bad continuation is masked", "\xC3\x41", {0x00C1}},
            {"overlong two bytes", "\xC0\xAF", {0x002F}},
            {"overlong three bytes", "\xE0\x80\xAF", {0x002F}},
            {"overlong four bytes", "\xF0\x80\x80\xAF", {0x002F}},
            {"encoded surrogate", "\xED\xA0\x80", {0xD800}},
            {"above U+10FFFF", "\xF4\x90\x80\x80", {0xDC00, 0xDC00}},
            {"five-byte lead reads four", "x\xFF\xBF\xBF\xBF", {u'x', 0xDFBF, 0xDFFF}},
    };
    for (const Case& c : cases) {
        const auto* src = reinterpret_cast<const uint8_t*>(c.in.data());
        EXPECT_EQ(static_cast<ssize_t>(c.out.size()), utf8_to_utf16_length(src, c.in.size()))
                << c.what;
        std::u16string out;
        EXPECT_TRUE(utf8ToUtf16(c.in, &out)) << c.what;
        EXPECT_EQ(c.out, out) << c.what;
        EXPECT_EQ(c.out, std::u16string(String16(c.in.data(), c.in.size()).c_str())) << c.what;
    }

    // Cut short: the length is -1 and String16 is empty; the copy stops before the cut.
    const std::pair<std::string, std::u16string> cut[] = {
            {"\xC3", u""}, {"a\xE2\x82", u"a"}, {"ok\xF0\x9F\x98", u"ok"}, {"\xFF", u""}};
    for (const auto& [s, copied] : cut) {
        const auto* src = reinterpret_cast<const uint8_t*>(s.data());
        EXPECT_EQ(-1, utf8_to_utf16_length(src, s.size())) << testing::PrintToString(s);
        std::u16string out;
        EXPECT_FALSE(utf8ToUtf16(s, &out));
        EXPECT_EQ(0u, String16(s.c_str()).size());
        char16_t dst[8];
        utf8_to_utf16(src, s.size(), dst, 8);
        EXPECT_EQ(copied, std::u16string(dst));
    }
}

// Expected values: libutils Unicode.cpp, utf16_to_utf8_length and utf16_to_utf8 (Android 12):
// an unpaired surrogate is skipped, the rest converts.
TEST(StringTest, UnpairedSurrogatesAreDropped) {
    const std::pair<std::u16string, std::string> cases[] = {
            {{0xD800}, ""},
            {{0xDC00}, ""},
            {{u'a', 0xD83D}, "a"},
            {{0xD83D, u'a'}, "a"},
            {{0xDE00, 0xD83D}, ""},
            {{0xD83D, 0xD83D, 0xDE00}, "\xF0\x9F\x98\x80"},
    };
    for (const auto& [in, expected] : cases) {
        EXPECT_EQ(static_cast<ssize_t>(expected.size()), utf16_to_utf8_length(in.data(), in.size()))
                << expected;
        std::string out = "stale";
        utf16ToUtf8(in, &out);
        EXPECT_EQ(expected, out);
        EXPECT_EQ(expected, String8(in.data(), in.size()).string());
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
