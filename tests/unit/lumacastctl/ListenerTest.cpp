// The listener of `lumacastctl listen`: what it saves must be byte for byte what arrived and
// never mix with an earlier run, its limit must fire once however callbacks race, and its
// verdict must follow the options.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <atomic>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TestEnv.h"
#include "tools/camsim/Recording.h"
#include "tools/lumacastctl/Listener.h"

using android::sp;

namespace lumacast::ctl {
namespace {

using lumacast::test::readFile;

using camsim::RecordedCallback;
using camsim::Recording;

TEST(ListenerTest, SavesAndRecordsEveryCallbackByteForByteAndPrintsOneLineEach) {
    ListenOptions options;
    options.saveDir = test::testTempDir() + "/save";
    std::string why;
    ASSERT_TRUE(Listener::prepareSaveDir(options.saveDir, &why)) << why;
    options.recordPath = options.saveDir + "/session.rec";
    const std::string outPath = test::testTempDir() + "/listen.out";
    FILE* out = fopen(outPath.c_str(), "w");
    ASSERT_NE(out, nullptr);
    sp<Listener> listener = new Listener(options, out, nullptr);
    ASSERT_TRUE(listener->openRecording(&why)) << why;

    std::vector<uint8_t> frame(70000);
    for (size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<uint8_t>(i * 7);
    const std::vector<uint8_t> proto = {0x08, 0x96, 0x01, 0x00, 0xff};
    // A newline inside the text must not split the printed line.
    const std::string json = "{\"faces\":[1,\n2]}";
    EXPECT_TRUE(listener->onFrame(3, 2, frame).isOk());
    EXPECT_TRUE(listener->onFrame(3, 3, {}).isOk());
    EXPECT_TRUE(listener->onProtoBuf(proto).isOk());
    EXPECT_TRUE(listener->onAiData(json).isOk());

    const std::string dir = options.saveDir;
    EXPECT_EQ(readFile(dir + "/frame-000001.bin"), std::string(frame.begin(), frame.end()));
    EXPECT_EQ(readFile(dir + "/frame-000002.bin"), "");
    EXPECT_EQ(readFile(dir + "/proto-000001.bin"), std::string(proto.begin(), proto.end()));
    EXPECT_EQ(readFile(dir + "/ai-000001.json"), json);
    std::vector<RecordedCallback> kept;
    ASSERT_TRUE(Recording::load(options.recordPath, &kept, &why)) << why;
    ASSERT_EQ(kept.size(), 4u);
    EXPECT_EQ(kept[0].data, std::string(frame.begin(), frame.end()));
    EXPECT_EQ(kept[1].blockParam, 3);
    EXPECT_EQ(kept[1].blockCount, 3);
    EXPECT_EQ(kept[2].kind, camsim::kTypeAiProtobuf);
    EXPECT_EQ(kept[3].data, json);
    EXPECT_EQ(kept[3].kind, camsim::kTypeAiJson);

    const Listener::Counts c = listener->counts();
    EXPECT_EQ(c.events[Listener::kFrame], 2u);
    EXPECT_EQ(c.bytes[Listener::kFrame], frame.size());
    EXPECT_EQ(c.bytes[Listener::kProto], proto.size());
    EXPECT_EQ(c.bytes[Listener::kAi], json.size());
    EXPECT_EQ(listener->saveFailures(), 0u);
    // A second run into the same folder would pass old files off as its own.
    EXPECT_FALSE(Listener::prepareSaveDir(dir, &why));
    EXPECT_NE(why.find("already holds files"), std::string::npos) << why;
    EXPECT_FALSE(Listener::prepareSaveDir(dir + "/ai-000001.json", &why));
    EXPECT_TRUE(Listener::prepareSaveDir(dir + "/new", &why)) << why;

    listener->printSummary();
    fclose(out);
    const std::string text = readFile(outPath);
    // Each callback line is led by its time since the listener began, never going back.
    const std::regex line(R"(\+(\d+\.\d{3})s (\w+) #1 (.*)\n)");
    std::vector<std::string> lines;
    double last = 0;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), line);
         it != std::sregex_iterator(); ++it) {
        const double t = std::stod((*it)[1]);
        EXPECT_GE(t, last);
        last = t;
        lines.push_back((*it)[2].str() + " " + (*it)[3].str());
    }
    EXPECT_EQ(lines,
              (std::vector<std::string>{
                      "frame blockCount=3 blockParam=2 bytes=70000 -> " + dir + "/frame-000001.bin",
                      "proto bytes=5 [08 96 01 00 ff] -> " + dir + "/proto-000001.bin",
                      "ai {\"faces\":[1,.2]} -> " + dir + "/ai-000001.json"}))
            << text;
    EXPECT_NE(text.find("counts: frame=2 ai=1 proto=1\n"), std::string::npos) << text;
}

TEST(ListenerTest, LimitFiresOnceWhenCallbacksRace) {
    ListenOptions options;
    options.count = 1000;
    options.quiet = true;
    std::atomic<int> fired{0};
    FILE* out = tmpfile();
    ASSERT_NE(out, nullptr);
    sp<Listener> listener = new Listener(options, out, [&] { fired++; });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            const std::vector<uint8_t> bytes(static_cast<size_t>(t + 1));
            for (int i = 0; i < 400; ++i) {
                if (t % 2 == 0) {
                    listener->onFrame(1, i, bytes);
                } else {
                    listener->onAiData("{}");
                }
            }
        });
    }
    for (auto& th : threads) th.join();
    EXPECT_EQ(fired.load(), 1);
    const Listener::Counts c = listener->counts();
    EXPECT_EQ(c.total(), 1600u);
    EXPECT_EQ(c.bytes[Listener::kFrame], 400u * 1 + 400u * 3);
    EXPECT_EQ(listener->shortfall(), "");
    fclose(out);
}

TEST(ListenerTest, VerdictFollowsCountRequireAndSaveFailures) {
    FILE* out = tmpfile();
    ASSERT_NE(out, nullptr);
    {
        ListenOptions options;
        options.quiet = true;
        options.count = 3;
        options.requireAi = true;
        options.requireProto = true;
        sp<Listener> l = new Listener(options, out, nullptr);
        l->onFrame(1, 0, {1});
        EXPECT_EQ(l->shortfall(),
                  "stopped after 1 of 3 callbacks (--count); no ai arrived (--require); no proto "
                  "arrived (--require)");
        l->onFrame(1, 0, {1});
        l->onFrame(1, 0, {1});
        // Enough callbacks, but not of the kinds required: the verdict names them.
        EXPECT_EQ(l->shortfall(), "no ai arrived (--require); no proto arrived (--require)");
        l->onProtoBuf({});
        EXPECT_EQ(l->shortfall(), "no ai arrived (--require)");
        l->onAiData("{}");
        EXPECT_EQ(l->shortfall(), "");
    }
    {
        // A folder that vanished: every callback is still counted, the run is not good.
        ListenOptions options;
        options.quiet = true;
        options.saveDir = test::testTempDir() + "/no/such/folder";
        sp<Listener> l = new Listener(options, out, nullptr);
        l->onFrame(1, 0, {1, 2, 3});
        l->onFrame(1, 1, {4});
        EXPECT_EQ(l->counts().events[Listener::kFrame], 2u);
        EXPECT_EQ(l->saveFailures(), 2u);
        EXPECT_EQ(l->shortfall(), "2 callbacks could not be saved (--save)");
    }
    fclose(out);
}

std::string record(uint32_t kind, int32_t count, int32_t param, uint64_t us, std::string data) {
    RecordedCallback r;
    r.kind = kind;
    r.blockCount = count;
    r.blockParam = param;
    r.offsetUs = us;
    r.data = std::move(data);
    return Recording::encode(r);
}

TEST(RecordingTest, ReplaysFramesInTheirMessagesAndRefusesCorruptFiles) {
    const std::string magic(Recording::kMagic, Recording::kMagicLen);
    // Two blocks of a three-block frame (the third had no payload), then an AI text.
    const std::string good = magic + record(camsim::kTypeFrame, 3, 7, 1000, "abc") +
                             record(camsim::kTypeFrame, 3, 9, 1000, "de") +
                             record(camsim::kTypeAiJson, 0, 0, 251000, "{}");
    std::vector<RecordedCallback> records;
    std::string why;
    ASSERT_TRUE(Recording::decode(good, &records, &why)) << why;
    const std::vector<camsim::TimedMessage> messages = Recording::toMessages(records);
    ASSERT_EQ(messages.size(), 2u);
    camsim::Message frame;
    frame.dataType = camsim::kTypeFrame;
    frame.blocks = {{7, "abc", std::nullopt}, {9, "de", std::nullopt}, {0, "", std::nullopt}};
    EXPECT_EQ(messages[0].bytes, camsim::encodeMessage(frame));
    EXPECT_EQ(messages[0].offsetUs, 0u);
    EXPECT_EQ(messages[1].bytes, camsim::dataMessage(camsim::kTypeAiJson, {"{}"}));
    EXPECT_EQ(messages[1].offsetUs, 250000u);

    const std::string second = magic + record(camsim::kTypeFrame, 1, 0, 5, "x");
    const std::pair<std::string, const char*> bad[] = {
            {"LUMAREC2" + good.substr(8), "not a recording"},
            {good.substr(0, good.size() - 1), "record 3: length 2 runs past the end"},
            {second + record(9, 1, 0, 6, "y"), "record 2: unknown kind 9"},
            {second + record(camsim::kTypeFrame, 1, 0, 4, "y"), "record 2: time goes backwards"},
            {second + std::string(10, '\0'), "record 2: truncated header"},
            {second + record(camsim::kTypeFrame, 1, 0, 6, "").substr(0, 20) + "\xff\xff\xff\x7f",
             "record 2: length 2147483647 runs past the end"},
    };
    for (const auto& [bytes, reason] : bad) {
        EXPECT_FALSE(Recording::decode(bytes, &records, &why)) << reason;
        EXPECT_EQ(why.compare(0, strlen(reason), reason), 0) << why;
    }
}
}  // namespace
}  // namespace lumacast::ctl
