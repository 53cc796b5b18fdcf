#include <log/log.h>

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <lumacast/host/LogCapture.h>

using lumacast::host::LogCapture;

TEST(LogTest, CaptureSeesPriorityTagAndTextAndOverlongTextIsCutNotOverrun) {
    LogCapture log;
    __android_log_print(ANDROID_LOG_ERROR, "lumacastservice", "SocketClient::reconnect %s:%d",
                        "start", 3);
    const std::string huge(100000, 'x');
    __android_log_print(ANDROID_LOG_DEBUG, "t", "%s", huge.c_str());
    const auto entries = log.entries();
    ASSERT_EQ(2u, entries.size());
    EXPECT_EQ(ANDROID_LOG_ERROR, entries[0].prio);
    EXPECT_EQ("lumacastservice", entries[0].tag);
    EXPECT_EQ("SocketClient::reconnect start:3", entries[0].text);
    EXPECT_GT(entries[1].text.size(), 1000u);
    EXPECT_LT(entries[1].text.size(), huge.size());
}

// stderr carries logcat's threadtime layout, one whole line per message even when
// threads log at once.
TEST(LogTest, StderrLinesAreThreadtimeAndWhole) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    fcntl(fds[0], F_SETFL, O_NONBLOCK);
    const int saved = dup(STDERR_FILENO);
    dup2(fds[1], STDERR_FILENO);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 50; ++i) {
                __android_log_print(ANDROID_LOG_INFO, "CameraMotor-I2C", "fun = %s, t=%d i=%d",
                                    "iic_write", t, i);
            }
        });
    }
    for (auto& th : threads) th.join();
    dup2(saved, STDERR_FILENO);
    close(saved);
    close(fds[1]);
    std::string out;
    char buf[8192];
    ssize_t n;
    while ((n = read(fds[0], buf, sizeof(buf))) > 0) out.append(buf, static_cast<size_t>(n));
    close(fds[0]);
    const char* quiet = getenv("LUMACAST_LOG_QUIET");
    if (quiet != nullptr && quiet[0] != '\0' && quiet[0] != '0') {
        GTEST_SKIP() << "stderr logging disabled";
    }
    const std::regex line(
            R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d\d\d +\d+ +\d+ I CameraMotor-I2C: fun = iic_write, t=\d i=\d+)");
    size_t count = 0;
    size_t pos = 0;
    while (pos < out.size()) {
        const size_t end = out.find('\n', pos);
        ASSERT_NE(std::string::npos, end);
        const std::string l = out.substr(pos, end - pos);
        EXPECT_TRUE(std::regex_match(l, line)) << l;
        ++count;
        pos = end + 1;
    }
    EXPECT_EQ(200u, count);
}
