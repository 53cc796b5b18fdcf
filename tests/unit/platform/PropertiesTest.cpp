#include <cutils/properties.h>

#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

TEST(PropertiesTest, DefaultsAndRoundTrip) {
    char value[PROPERTY_VALUE_MAX];
    EXPECT_EQ(1, property_get("sys.kora.usb.status", value, "0"));
    EXPECT_STREQ("0", value);
    EXPECT_EQ(0, property_get("sys.kora.usb.status", value, nullptr));
    EXPECT_STREQ("", value);

    ASSERT_EQ(0, property_set("sys.kora.usb.status", "1"));
    EXPECT_EQ(1, property_get("sys.kora.usb.status", value, "0"));
    EXPECT_STREQ("1", value);
    ASSERT_EQ(0, property_set("sys.kora.usb.status", ""));
    EXPECT_EQ(0, property_get("sys.kora.usb.status", value, "0"));
}

TEST(PropertiesTest, ValueLimitsAsOnTheDevice) {
    char value[PROPERTY_VALUE_MAX];
    const std::string longest(PROPERTY_VALUE_MAX - 1, 'v');
    ASSERT_EQ(0, property_set("test.limit", longest.c_str()));
    EXPECT_EQ(PROPERTY_VALUE_MAX - 1, property_get("test.limit", value, ""));
    EXPECT_EQ(longest, value);

    const std::string tooLong(PROPERTY_VALUE_MAX, 'w');
    EXPECT_EQ(-1, property_set("test.limit", tooLong.c_str()));
    property_get("test.limit", value, "");
    EXPECT_EQ(longest, value);  // the refused write changed nothing

    // A default longer than the limit is cut, never copied past the buffer.
    const std::string longDefault(300, 'd');
    EXPECT_EQ(PROPERTY_VALUE_MAX - 1, property_get("test.unset", value, longDefault.c_str()));
    EXPECT_EQ(std::string(PROPERTY_VALUE_MAX - 1, 'd'), value);
}

TEST(PropertiesTest, BadNamesAndSecondWritesOfReadOnlyPropertiesAreRefused) {
    char value[PROPERTY_VALUE_MAX];
    for (const char* name : {"", ".a", "a.", "a..b", "../etc", "a/b", "a b", "a\nb"}) {
        EXPECT_EQ(-1, property_set(name, "1")) << name;
        EXPECT_EQ(1, property_get(name, value, "d")) << name;
    }
    EXPECT_EQ(-1, property_set(nullptr, "1"));

    ASSERT_EQ(0, property_set("ro.lumacast.test", "first"));
    EXPECT_EQ(-1, property_set("ro.lumacast.test", "second"));
    property_get("ro.lumacast.test", value, "");
    EXPECT_STREQ("first", value);
}

// Writers in other processes of the same simulated device hammer one key: this one sees
// what they wrote, and every value it reads was written whole.
TEST(PropertiesTest, OtherProcessesWritesArriveWhole) {
    const std::string a(80, 'a');
    const std::string b(40, 'b');
    ASSERT_EQ(0, property_set("test.race", "before"));
    std::vector<pid_t> writers;
    for (int w = 0; w < 3; ++w) {
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            for (int i = 0; i < 400; ++i) {
                if (property_set("test.race", ((i + w) % 2 ? a : b).c_str()) != 0) _exit(1);
            }
            _exit(0);
        }
        writers.push_back(pid);
    }
    int bad = 0;
    for (int i = 0; i < 2000; ++i) {
        char value[PROPERTY_VALUE_MAX];
        property_get("test.race", value, "");
        if (a != value && b != value && strcmp(value, "before") != 0) ++bad;
    }
    for (pid_t pid : writers) {
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(0, bad);
    char value[PROPERTY_VALUE_MAX];
    property_get("test.race", value, "");
    EXPECT_TRUE(a == value || b == value) << value;
}
