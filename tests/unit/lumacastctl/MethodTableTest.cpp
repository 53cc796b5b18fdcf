// The command line's method table against in-process services built on the generated
// stubs: each name reaches its own method with its arguments in order and typed as the
// interface wants, and results come back unchanged.
#include <gtest/gtest.h>
#include <kora/lumacast/BnKCameraMotor.h>
#include <kora/lumacast/BnLumacast.h>

#include <string>
#include <vector>

#include "tools/lumacastctl/Arguments.h"
#include "tools/lumacastctl/MethodTable.h"

using android::sp;
using android::binder::Status;
using kora::lumacast::IKCameraMotor;
using kora::lumacast::ILumacast;
using kora::lumacast::ILumacastCallback;

namespace lumacast::ctl {
namespace {

// Records each call as "name(arg,arg)" and answers with a value given per method, so that
// a swapped method or argument shows.
class Recorder {
  public:
    std::vector<std::string> calls;
    Status fail = Status::ok();

  protected:
    template <typename T>
    Status give(const std::string& call, T value, T* r) {
        *r = value;
        return log(call);
    }
    Status log(const std::string& call) {
        calls.push_back(call);
        return fail;
    }
    // Bool results alternate.
    Status put(const std::string& call, bool* r) { return give(call, calls.size() % 2 == 0, r); }
};

class FakeLumacast : public kora::lumacast::BnLumacast, public Recorder {
  public:
    Status setCallback(const sp<ILumacastCallback>&, bool* r) override {
        return put("setCallback", r);
    }
    Status removeCallback(const sp<ILumacastCallback>&, bool* r) override {
        return put("removeCallback", r);
    }
    Status setZoomSwitch(bool on, bool* r) override {
        return put(std::string("setZoomSwitch(") + (on ? "true" : "false") + ")", r);
    }
    Status getZoomSwitch(bool* r) override { return put("getZoomSwitch()", r); }
    Status getAiAlgoList(int32_t* r) override { return give("getAiAlgoList()", 16, r); }
    Status setAiSubscribeType(int32_t type, bool* r) override {
        return put("setAiSubscribeType(" + std::to_string(type) + ")", r);
    }
    Status getAiSubscribeStatus(int32_t* r) override {
        return give("getAiSubscribeStatus()", -2, r);
    }
    Status setAiProperty(const std::string& p, bool* r) override {
        return put("setAiProperty(" + p + ")", r);
    }
    Status getAiProperty(const std::string& p, std::string* r) override {
        return give("getAiProperty(" + p + ")", "value of " + p, r);
    }
    Status setAiSubscribe(int32_t p, const std::string& o, bool* r) override {
        return put("setAiSubscribe(" + std::to_string(p) + "," + o + ")", r);
    }
    Status getAiSubscribe(std::string* r) override {
        return give("getAiSubscribe()", std::string("{\"cmd_id\":2}"), r);
    }
    Status grabFrame(int32_t f, const std::string& res, bool* r) override {
        return put("grabFrame(" + std::to_string(f) + "," + res + ")", r);
    }
    Status sendDoa(const std::string& d, bool* r) override { return put("sendDoa(" + d + ")", r); }
    Status setAutoFraming(int32_t p, bool* r) override {
        return put("setAutoFraming(" + std::to_string(p) + ")", r);
    }
    Status getAutoFraming(bool* r) override { return put("getAutoFraming()", r); }
    Status setZoomMode(int32_t p, int32_t m, bool* r) override {
        return put("setZoomMode(" + std::to_string(p) + "," + std::to_string(m) + ")", r);
    }
    Status getZoomMode(std::string* r) override { return give("getZoomMode()", std::string(), r); }
};

class FakeMotor : public kora::lumacast::BnKCameraMotor, public Recorder {
  public:
    Status set_client_type(const std::string& t) override {
        return log("set_client_type(" + t + ")");
    }
    Status motor_down(int32_t* r) override { return give("motor_down()", 256, r); }
    Status motor_up(int32_t* r) override { return give("motor_up()", 0, r); }
    Status get_motor_status(int32_t* r) override { return give("get_motor_status()", 4, r); }
    Status get_rise_time(int32_t* r) override { return give("get_rise_time()", 1350, r); }
    Status get_switch_status(bool* r) override { return give("get_switch_status()", true, r); }
    Status is_support_motor(bool* r) override { return give("is_support_motor()", false, r); }
    Status set_status(bool s) override {
        return log(std::string("set_status(") + (s ? "1" : "0") + ")");
    }
    Status get_status(bool* r) override { return give("get_status()", true, r); }
    Status get_mcu_version(std::string* r) override {
        return give("get_mcu_version()", std::string("V1.0.7"), r);
    }
    Status mcu_upgrade(const std::string& p, int32_t* r) override {
        return give("mcu_upgrade(" + p + ")", -121, r);
    }
};

struct Case {
    std::vector<std::string> words;  // method, then arguments
    std::string call;                // as the service saw it
    std::string printed;             // the result as printed
};

template <typename Interface, typename Fake>
void runCases(const std::vector<Method<Interface>>& table, Fake* fake,
              const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        SCOPED_TRACE(c.words[0]);
        fake->calls.clear();
        Value result;
        std::string error;
        const std::vector<std::string> args(c.words.begin() + 1, c.words.end());
        ASSERT_EQ(MethodTable::call(table, *fake, c.words[0], args, &result, &error),
                  CallResult::kOk)
                << error;
        ASSERT_EQ(fake->calls.size(), 1u);
        EXPECT_EQ(fake->calls[0], c.call);
        EXPECT_EQ(result.toString(), c.printed);
    }
}

TEST(MethodTableTest, EveryStreamingMethodReachesItsOwnCallWithTypedArguments) {
    sp<FakeLumacast> fake = new FakeLumacast();
    runCases(MethodTable::lumacast(), fake.get(),
             {
                     {{"setZoomSwitch", "0"}, "setZoomSwitch(false)", "true"},
                     {{"getZoomSwitch"}, "getZoomSwitch()", "true"},
                     {{"getAiAlgoList"}, "getAiAlgoList()", "16"},
                     {{"setAiSubscribeType", "-1"}, "setAiSubscribeType(-1)", "true"},
                     {{"getAiSubscribeStatus"}, "getAiSubscribeStatus()", "-2"},
                     {{"setAiProperty", "fps 30"}, "setAiProperty(fps 30)", "true"},
                     {{"getAiProperty", "x"}, "getAiProperty(x)", "value of x"},
                     {{"setAiSubscribe", "3", "{\"a\":[1,2]}"},
                      "setAiSubscribe(3,{\"a\":[1,2]})",
                      "true"},
                     {{"getAiSubscribe"}, "getAiSubscribe()", "{\"cmd_id\":2}"},
                     {{"grabFrame", "0x10", "1920x1080"}, "grabFrame(16,1920x1080)", "true"},
                     {{"sendDoa", "{\"angle\":30}"}, "sendDoa({\"angle\":30})", "true"},
                     {{"setAutoFraming", "2147483647"}, "setAutoFraming(2147483647)", "true"},
                     {{"getAutoFraming"}, "getAutoFraming()", "true"},
                     {{"setZoomMode", "1", "2"}, "setZoomMode(1,2)", "true"},
                     {{"getZoomMode"}, "getZoomMode()", ""},
             });
    // An exception status is a failure that carries its text.
    fake->fail = Status::fromExceptionCode(Status::EX_ILLEGAL_STATE, "camera busy");
    Value result;
    std::string error;
    EXPECT_EQ(MethodTable::call(MethodTable::lumacast(), *fake, "getZoomMode", {}, &result, &error),
              CallResult::kFailed);
    EXPECT_NE(error.find("camera busy"), std::string::npos) << error;
}

TEST(MethodTableTest, EveryMotorMethodReachesItsOwnCall) {
    sp<FakeMotor> fake = new FakeMotor();
    runCases(MethodTable::motor(), fake.get(),
             {
                     {{"set_client_type", "xx MT9652-CEDAR yy"},
                      "set_client_type(xx MT9652-CEDAR yy)",
                      ""},
                     {{"motor_down"}, "motor_down()", "256"},
                     {{"motor_up"}, "motor_up()", "0"},
                     {{"get_motor_status"}, "get_motor_status()", "4"},
                     {{"get_rise_time"}, "get_rise_time()", "1350"},
                     {{"get_switch_status"}, "get_switch_status()", "true"},
                     {{"is_support_motor"}, "is_support_motor()", "false"},
                     {{"set_status", "true"}, "set_status(1)", ""},
                     {{"get_status"}, "get_status()", "true"},
                     {{"get_mcu_version"}, "get_mcu_version()", "V1.0.7"},
                     {{"mcu_upgrade", "/data/fw.bin"}, "mcu_upgrade(/data/fw.bin)", "-121"},
             });
}

TEST(MethodTableTest, MalformedArgumentsAreRefusedBeforeAnyCall) {
    sp<FakeLumacast> fake = new FakeLumacast();
    const std::vector<std::vector<std::string>> bad = {
            {"setZoomMode", "1"},            // too few
            {"setZoomMode", "1", "2", "3"},  // too many
            {"setZoomMode", "1", "2x"},      // not a number
            {"setZoomSwitch", "yes"},        // not a bool
            {"setZoomSwitch", ""},
            {"getZoomSwitch", "1"},
            {"setCallback"},  // only through listen
            {"nosuchMethod"},
    };
    for (const auto& words : bad) {
        Value result;
        std::string error;
        EXPECT_EQ(MethodTable::call(MethodTable::lumacast(), *fake, words[0],
                                    std::vector<std::string>(words.begin() + 1, words.end()),
                                    &result, &error),
                  CallResult::kUsage)
                << words[0] << " " << (words.size() > 1 ? words[1] : "");
        EXPECT_FALSE(error.empty());
    }
    EXPECT_TRUE(fake->calls.empty());
}

TEST(ArgumentsTest, NumbersAreReadWholeAndInRange) {
    int32_t i = 7;
    EXPECT_TRUE(parseInt32("-2147483648", &i));
    EXPECT_EQ(i, INT32_MIN);
    EXPECT_TRUE(parseInt32("0x7fffffff", &i));
    EXPECT_EQ(i, INT32_MAX);
    // A leading zero is decimal here, not octal.
    EXPECT_TRUE(parseInt32("010", &i));
    EXPECT_EQ(i, 10);
    i = 7;
    for (const char* bad : {"", "-", "0x", "1e3", "4294967296", "2147483648", "-2147483649", " 2",
                            "2x", "+-1", "1.5", "0x1g"}) {
        EXPECT_FALSE(parseInt32(bad, &i)) << bad;
    }
    EXPECT_EQ(i, 7);

    uint64_t n = 3;
    EXPECT_FALSE(parseCount("-1", &n));
    EXPECT_FALSE(parseCount("18446744073709551616", &n));
    EXPECT_EQ(n, 3u);
    double s = 0;
    EXPECT_TRUE(parseSeconds("0.25", &s));
    EXPECT_DOUBLE_EQ(s, 0.25);
    for (const char* bad : {"nan", "inf", "-1", "1e300", "", "2s"}) {
        EXPECT_FALSE(parseSeconds(bad, &s)) << bad;
    }
}

}  // namespace
}  // namespace lumacast::ctl
