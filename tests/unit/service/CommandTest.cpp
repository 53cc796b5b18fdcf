// The command exchange with the camera: packets, result matching, rules, busy refusals,
// time-outs, long answers and string limits.
#include <future>

#include "tests/unit/service/ServiceTestSupport.h"

using lumacast::camsim::Command;
using lumacast::camsim::ReplyRule;
using lumacast::camsim::resultMessage;

namespace lumacast::test {
namespace {

ReplyRule rule(int param, int rval) {
    ReplyRule r;
    r.param = param;
    r.rval = rval;
    return r;
}

ReplyRule silent() {
    ReplyRule r;
    r.silent = true;
    return r;
}

class CommandTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        plugCamera();
        // Connected up front: calls that find the link still connecting are refused.
        ASSERT_TRUE(service->continueProcess());
        ASSERT_TRUE(camera->waitForConnections(1, 10s));
    }

    // Frames the camera received, as sent.
    std::vector<std::string> frames() {
        std::vector<std::string> out;
        for (const Command& c : camera->commands()) out.push_back(c.frame);
        return out;
    }
};

// Every operation sends its own text, framed, and reads a plain success answer.
TEST_F(CommandTest, EveryOperationSendsItsPacket) {
    const std::vector<Operation> operations = cameraOperations();
    for (size_t n = 0; n < operations.size(); ++n) {
        Outs outs;
        operations[n].call(service.get(), &outs);
        EXPECT_TRUE(operations[n].succeeded(outs)) << operations[n].text;
        ASSERT_EQ(n + 1, camera->commandCount());
        EXPECT_EQ(commandFrame(operations[n].text), frames()[n]) << operations[n].text;
    }
    EXPECT_EQ(1u, camera->connectionCount());
    EXPECT_TRUE(
            log.contains("LumacastService::setZoomMode  {\"cmd_id\":14,\"param\":2,\"mode\":-3}",
                         ANDROID_LOG_INFO));
    EXPECT_TRUE(log.contains("LumacastService::setAiSubscribeType process", ANDROID_LOG_DEBUG));
}

TEST_F(CommandTest, ResultRulesJudgeTheCamerasAnswer) {
    // Each out-parameter starts at the opposite of what the answer must make it.
    struct Flag {
        int id, param, rval;
        std::function<void(bool*)> call;
        bool ok;
    };
    const std::vector<Flag> flags = {
            // Switch operations need param 1 and rval 0, whatever was asked.
            {14, 0, 0, [&](bool* b) { service->setZoomSwitch(false, b); }, false},
            {14, 1, 0, [&](bool* b) { service->setZoomSwitch(false, b); }, true},
            {14, 1, 2, [&](bool* b) { service->setZoomSwitch(true, b); }, false},
            {15, 0, 0, [&](bool* b) { service->getZoomSwitch(b); }, false},
            {13, 1, 0, [&](bool* b) { service->getAutoFraming(b); }, true},
            {13, 2, 0, [&](bool* b) { service->getAutoFraming(b); }, false},
            // A non-zero rval fails every setter.
            {5, 1, 1, [&](bool* b) { service->setAiProperty("p", b); }, false},
            {4, 1, 1, [&](bool* b) { service->sendDoa("1", b); }, false},
            {14, 1, 1, [&](bool* b) { service->setZoomMode(1, 1, b); }, false},
            {1, 0, -5, [&](bool* b) { service->setAiSubscribeType(2, b); }, false},
            {3, 0, 4, [&](bool* b) { service->grabFrame(1, "640x480", b); }, false},
            {1, 0, 6, [&](bool* b) { service->setAiSubscribe(1, "0", b); }, false},
    };
    for (const Flag& f : flags) {
        camera->setRule(f.id, rule(f.param, f.rval));
        bool b = !f.ok;
        f.call(&b);
        EXPECT_EQ(f.ok, b) << f.id << " param " << f.param << " rval " << f.rval;
    }
    // Queries return the camera's param; values are read without their sign.
    const struct {
        int id, param, rval;
        int32_t value;
    } counts[] = {{16, -5, 0, 5}, {16, 9, 1, 0}, {2, 3, 0, 3}, {2, 3, 1, 0}};
    for (const auto& c : counts) {
        camera->setRule(c.id, rule(c.param, c.rval));
        int32_t i = c.value + 1;
        if (c.id == 16) {
            service->getAiAlgoList(&i);
        } else {
            service->getAiSubscribeStatus(&i);
        }
        EXPECT_EQ(c.value, i) << c.id << " param " << c.param << " rval " << c.rval;
    }
    // Outcomes are logged with the answer's fields, each kind with its own text.
    for (const char* line :
         {"LumacastService::setZoomSwitch retWait:0, mCmd:14, mParam:0, mRetVal:0",
          "LumacastService::setAiSubscribeType retWait:0, mCmd:1, mParam:0, mRetVal:5",
          "LumacastService::grabFrame retWait:0, mCmd:3, mRetVal:4",
          "LumacastService::mSignalSetAiSubscribe retWait:0, mCmd:1, mParam:0, mRetVal:6"}) {
        EXPECT_TRUE(log.contains(line)) << line;
    }
    // Text queries hand on the answer whatever its rval, and see no mismatch in it.
    std::string s;
    for (int id : {2, 6, 15}) camera->setRule(id, rule(0, 7));
    service->getAiSubscribe(&s);
    EXPECT_EQ(answer(2, 0, 7), s);
    service->getAiProperty("p", &s);
    EXPECT_EQ(answer(6, 0, 7), s);
    service->getZoomMode(&s);
    EXPECT_EQ(answer(15, 0, 7), s);
    EXPECT_EQ(0u, log.countContaining("mRetVal:7"));
    // 150 bytes cannot be kept whole with their zero: cut to 99.
    ReplyRule longText;
    longText.text = "{\"cmd_id\":6,\"param\":1,\"rval\":0,\"v\":\"" + std::string(150, 'v') + "\"}";
    camera->setRule(6, longText);
    service->getAiProperty("p", &s);
    EXPECT_EQ(longText.text.substr(0, 99), s);
    EXPECT_TRUE(log.contains("LumacastService::processResult text len:" +
                             std::to_string(longText.text.size()) + " cut to 99"));
}

// Only the answer's id decides whom it wakes; other ids and heartbeats wake nobody, and
// each call waits 3000 ms.
TEST_F(CommandTest, SilentCameraTimesEachCallOut) {
    camera->setRule(15, silent());
    camera->setRule(16, silent());
    bool on = true;
    int32_t list = -1;
    std::string mode = "unset";
    const auto start = std::chrono::steady_clock::now();
    auto a = std::async(std::launch::async, [&] { service->getZoomSwitch(&on); });
    auto b = std::async(std::launch::async, [&] { service->getAiAlgoList(&list); });
    auto c = std::async(std::launch::async, [&] { service->getZoomMode(&mode); });
    ASSERT_TRUE(camera->waitForCommands(3, 10s));
    std::string others;
    for (int id : {1, 2, 3, 4, 5, 6, 7, 12, 13, 14, 254}) others += resultMessage(answer(id, 1, 0));
    ASSERT_TRUE(camera->send(others));
    a.get();
    b.get();
    c.get();
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, 2900ms);
    EXPECT_LT(waited, 5000ms);
    EXPECT_FALSE(on);
    EXPECT_EQ(0, list);
    EXPECT_EQ("", mode);
    EXPECT_TRUE(log.contains("LumacastService::processResult mCmd = 7, mParam = 1, mRetVal = 0"));
    EXPECT_EQ(0u, log.countContaining("mCmd = 254"));
    // Not woken by id 7: each judged an empty slot after its time-out.
    for (const std::string name : {"getZoomSwitch", "getAiAlgoList", "getZoomMode"}) {
        EXPECT_TRUE(log.contains("LumacastService::" + name +
                                 " retWait:0, mCmd:-1, mParam:-1, mRetVal:-1"));
    }
    EXPECT_EQ(0u, log.count("LumacastService::processResult  signal"));
    EXPECT_NE(dump().find("  commands: sent 3, answered 0, timed out 3, refused as busy 0\n"),
              std::string::npos)
            << dump();
}

TEST_F(CommandTest, SecondCallOfAWaitingKindIsRefusedAtOnce) {
    camera->setRule(14, silent());
    camera->setRule(15, silent());
    bool first = true;
    std::string firstText;
    auto waiting = std::async(std::launch::async, [&] { service->setZoomMode(1, 1, &first); });
    auto query = std::async(std::launch::async, [&] { service->getZoomMode(&firstText); });
    ASSERT_TRUE(camera->waitForCommands(2, 10s));
    // A busy refusal leaves the out-parameter as it was.
    bool second = true;
    service->setZoomMode(2, 2, &second);
    EXPECT_TRUE(second);
    std::string secondText = "untouched";
    service->getZoomMode(&secondText);
    EXPECT_EQ("untouched", secondText);
    EXPECT_TRUE(log.contains(
            "LumacastService::setZoomMode nullptr != mSignalSetZoomMode(last processing)",
            ANDROID_LOG_ERROR));
    EXPECT_TRUE(log.contains(
            "LumacastService::getZoomMode nullptr != mSignalGetZoomMode(last processing)",
            ANDROID_LOG_ERROR));
    EXPECT_EQ(2u, camera->commandCount()) << "a refused call sends nothing";
    // Another kind is independent and goes through.
    bool other = false;
    service->setAutoFraming(1, &other);
    EXPECT_TRUE(other);
    ASSERT_TRUE(camera->send(resultMessage(answer(14, 1, 0)) + resultMessage(answer(15, 1, 0))));
    waiting.get();
    query.get();
    EXPECT_TRUE(first);
    EXPECT_EQ(answer(15, 1, 0), firstText);
    EXPECT_NE(dump().find("  commands: sent 3, answered 3, timed out 0, refused as busy 2\n"),
              std::string::npos)
            << dump();
}

// One answer completes every waiting call that shares its id, each judging it.
TEST_F(CommandTest, OneAnswerCompletesBothCallsOfItsId) {
    for (int id : {1, 2, 14, 15}) {
        const std::string prefix = "{\"cmd_id\":" + std::to_string(id) + ",";
        std::vector<Operation> sharing;
        for (const Operation& op : cameraOperations()) {
            if (op.text.compare(0, prefix.size(), prefix) == 0) sharing.push_back(op);
        }
        ASSERT_EQ(2u, sharing.size()) << id;
        camera->setRule(id, silent());
        const size_t sent = camera->commandCount();
        Outs first, second;
        auto a = std::async(std::launch::async, [&] { sharing[0].call(service.get(), &first); });
        auto b = std::async(std::launch::async, [&] { sharing[1].call(service.get(), &second); });
        ASSERT_TRUE(camera->waitForCommands(sent + 2, 10s));
        ASSERT_TRUE(camera->send(resultMessage(answer(id, 1, 0))));
        ASSERT_EQ(std::future_status::ready, a.wait_for(2s)) << id;
        ASSERT_EQ(std::future_status::ready, b.wait_for(2s)) << id;
        EXPECT_TRUE(sharing[0].succeeded(first)) << id;
        EXPECT_TRUE(sharing[1].succeeded(second)) << id;
        camera->clearRules();  // the link's own shutdown command carries id 1
    }
    EXPECT_EQ(4u, log.count("LumacastService::processResult  signal"));
}

// Strings are inserted as given; a text that would not fit its buffer (or the packet) is
// refused with the failure value, and nothing is sent.
TEST_F(CommandTest, StringArgumentsAtTheirLimits) {
    using Call = std::function<void(const std::string&, Outs*)>;
    struct Limit {
        size_t longest;  // longest accepted argument
        Call call;
        std::string before, after;  // the command text around the argument
    };
    const std::vector<Limit> limits = {
            {169, [&](const std::string& a, Outs* o) { service->setAiProperty(a, &o->b); },
             "{\"cmd_id\":5,\"param\":\"", "\"}"},
            {169, [&](const std::string& a, Outs* o) { service->getAiProperty(a, &o->s); },
             "{\"cmd_id\":6,\"param\":\"", "\"}"},
            {67, [&](const std::string& a, Outs* o) { service->setAiSubscribe(0, a, &o->b); },
             "{\"cmd_id\":1,\"param\":0,\"option\":", "}"},
            {62, [&](const std::string& a, Outs* o) { service->grabFrame(0, a, &o->b); },
             "{\"cmd_id\":3,\"param_1\":0,\"param_2\":\"", "\"}"},
            {171, [&](const std::string& a, Outs* o) { service->sendDoa(a, &o->b); },
             "{\"cmd_id\":4,\"param\":", "}"},
    };
    for (const Limit& limit : limits) {
        const std::string fits(limit.longest, '7');
        const size_t before = camera->commandCount();
        Outs outs;
        limit.call(fits, &outs);
        EXPECT_TRUE(outs.b || !outs.s.empty()) << limit.before;
        ASSERT_EQ(before + 1, camera->commandCount()) << limit.before;
        EXPECT_EQ(commandFrame(limit.before + fits + limit.after), frames().back()) << limit.before;

        for (size_t extra : {size_t{1}, size_t{4000}}) {
            Outs refused{true, 0, "stale"};
            limit.call(std::string(limit.longest + extra, '7'), &refused);
            // A setter writes false, the text query an empty text.
            EXPECT_TRUE(!refused.b || refused.s.empty()) << limit.before;
            EXPECT_EQ(before + 1, camera->commandCount())
                    << limit.before << " sent an overlong text";
        }
    }
}

TEST(CommandFormat, PacketForParamCommands) {
    unsigned char out[LumacastService::SEND_BUFFER_SIZE];
    memset(out, 0x55, sizeof(out));
    const int len = LumacastService::convertCmdParamToJson(1, 0, out);
    const std::string expected =
            std::string("\xFF\x00\xAB\xBC\x00\x00\x00\x16", 8) + "{\"cmd_id\":1,\"param\":0}";
    ASSERT_EQ(30, len);
    EXPECT_EQ(expected, std::string(reinterpret_cast<char*>(out), 30));
    for (size_t i = 30; i < sizeof(out); ++i) ASSERT_EQ(0, out[i]) << "the buffer is zeroed";

    // Unsigned arguments print as signed decimals.
    const int wide = LumacastService::convertCmdParamToJson(4294967295u, 2147483648u, out);
    EXPECT_EQ("{\"cmd_id\":-1,\"param\":-2147483648}",
              std::string(reinterpret_cast<char*>(out) + 8, static_cast<size_t>(wide - 8)));
}

TEST(CommandFormat, ResultParsingReadsLikeTheScanFormat) {
    struct Case {
        const char* text;
        int cmd, param, rval;
    };
    const Case cases[] = {
            {"{\"cmd_id\":14,\"param\":1,\"rval\":0}", 14, 1, 0},
            {"{\"cmd_id\":16,\"param\":-5,\"rval\":-2}", 16, 5, 2},    // signs are skipped
            {"{\"cmd_id\":0x1F,\"param\":010,\"rval\":0}", 31, 8, 0},  // automatic base
            {"{\"rval\":3,\"cmd_id\":2}", 3, -1, 3},                   // first number is taken
            {"{\"cmd_id\":6}", 6, -1, -1},                             // missing keys
            {"14", -1, -1, -1},                                        // no leading non-digit
            {"{\"param\":\"x\",\"cmd_id\":5}", 5, 5, -1},              // first number after "param"
            {"{\"cmd_id\":99999999999,\"param\":1}", -1, 1, -1},       // too big for an int
    };
    for (const Case& c : cases) {
        int cmd = -1;
        int param = -1;
        int rval = -1;
        std::string text = c.text;
        LumacastService::parseCmdParamFromJson(reinterpret_cast<unsigned char*>(&text[0]), &cmd,
                                               &param, &rval);
        if (std::string(c.text).find("99999999999") == std::string::npos) {
            EXPECT_EQ(c.cmd, cmd) << c.text;
        }
        EXPECT_EQ(c.param, param) << c.text;
        EXPECT_EQ(c.rval, rval) << c.text;
    }
    host::LogCapture log;
    int cmd = 7;
    int param = 8;
    int rval = 9;
    LumacastService::parseCmdParamFromJson(nullptr, &cmd, &param, &rval);
    unsigned char empty[1] = {0};
    LumacastService::parseCmdParamFromJson(empty, &cmd, &param, &rval);
    EXPECT_EQ(7, cmd);
    EXPECT_EQ(8, param);
    EXPECT_EQ(9, rval);
    EXPECT_EQ(2u, log.count("LumacastService::parseCmdParamFromJson nullptr == jsonData err"));
}

}  // namespace
}  // namespace lumacast::test
