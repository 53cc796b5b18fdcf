// A session recorded by a listener on one TV, played back by camsim on another, reaches a
// listener there block for block and byte for byte, at the recorded pace.
#include <unistd.h>

#include "tests/e2e/E2eSupport.h"
#include "tests/support/TestEnv.h"
#include "tools/camsim/Recording.h"

namespace lumacast::e2e {
namespace {

using camsim::RecordedCallback;
using camsim::Recording;

// Starts `lumacastctl listen` with `args` and waits until its listener is registered.
std::unique_ptr<demo::Process> startListener(FakeTv& tv, const std::vector<std::string>& args,
                                             const std::string& out) {
    std::string why;
    std::vector<std::string> argv = {"listen", "--quiet"};
    argv.insert(argv.end(), args.begin(), args.end());
    auto p = tv.startCtl(argv, out, &why);
    EXPECT_NE(p, nullptr) << why;
    for (int i = 0; p != nullptr && i < 1000; ++i) {
        if (test::readFile(out).find("listening") != std::string::npos) return p;
        usleep(10 * 1000);
    }
    ADD_FAILURE() << "the listener did not register";
    return nullptr;
}

std::vector<RecordedCallback> load(const std::string& path) {
    std::vector<RecordedCallback> records;
    std::string why;
    EXPECT_TRUE(Recording::load(path, &records, &why)) << why;
    return records;
}

TEST(ReplayTest, RecordedSessionReachesAnotherListenerUnchanged) {
    onFakeTv([](FakeTv& tv) {
        const std::string first = tv.path("first.rec");
        const std::string second = tv.path("second.rec");

        // The demo's session, and frames of several blocks, as a listener records them.
        plugAndWait(tv);
        auto recorder = startListener(tv, {"--seconds", "3", "--record", first}, first + ".out");
        ASSERT_NE(recorder, nullptr);
        ASSERT_EQ(tv.camsim("stream frame size=3000 blocks=3 rate=10"), "ok");
        ASSERT_EQ(tv.ctl({"lumacast", "setAiSubscribeType", "1"}).exitCode, 0);
        ASSERT_EQ(recorder->wait(20000), 0) << test::readFile(first + ".out.err");
        const std::vector<RecordedCallback> recorded = load(first);
        size_t multiBlock = 0;
        size_t kinds[4] = {};
        for (const RecordedCallback& r : recorded) {
            ++kinds[r.kind];
            if (r.blockCount == 3) ++multiBlock;
        }
        ASSERT_GT(kinds[camsim::kTypeAiJson], 0u);
        ASSERT_GT(kinds[camsim::kTypeAiProtobuf], 0u);
        ASSERT_GT(multiBlock, 3u);

        // The camera of another TV plays it back, four times as fast.
        std::string why;
        ASSERT_TRUE(tv.unplug(&why)) << why;
        plugAndWait(tv, test::kAcceptedCamera, "none");
        ASSERT_TRUE(waitForCamsim(tv, "connected=1", kDataMs));
        auto player = startListener(
                tv,
                {"--count", std::to_string(recorded.size()), "--seconds", "60", "--record", second},
                second + ".out");
        ASSERT_NE(player, nullptr);
        EXPECT_EQ(tv.camsim("replay " + first + " speed=4").compare(0, 3, "ok "), 0);
        ASSERT_EQ(player->wait(90000), 0) << test::readFile(second + ".out");

        const std::vector<RecordedCallback> replayed = load(second);
        ASSERT_EQ(replayed.size(), recorded.size());
        for (size_t i = 0; i < recorded.size(); ++i) {
            SCOPED_TRACE("callback " + std::to_string(i + 1));
            EXPECT_EQ(replayed[i].kind, recorded[i].kind);
            EXPECT_EQ(replayed[i].blockCount, recorded[i].blockCount);
            EXPECT_EQ(replayed[i].blockParam, recorded[i].blockParam);
            ASSERT_EQ(replayed[i].data, recorded[i].data);
        }
        // Paced, not poured out: at least half the recorded span divided by the speed.
        const uint64_t span = recorded.back().offsetUs - recorded.front().offsetUs;
        EXPECT_GE(replayed.back().offsetUs - replayed.front().offsetUs, span / 8);
    });
}

}  // namespace
}  // namespace lumacast::e2e
