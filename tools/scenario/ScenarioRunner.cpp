#include "tools/scenario/ScenarioRunner.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <stdlib.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/support/FakeDevice.h"
#include "tests/support/TestEnv.h"
#include "tools/camsim/CameraWire.h"
#include "tools/camsim/CommandIds.h"
#include "tools/lumacastctl/MethodTable.h"

using android::sp;
using kora::lumacast::IKCameraMotor;
using kora::lumacast::ILumacast;
using lumacast::test::lastLines;

namespace lumacast::scenario {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kDefaultWait = std::chrono::seconds(10);
constexpr size_t kAny = static_cast<size_t>(-1);

struct Verb {
    const char* name;
    size_t minWords;  // the verb included
    size_t maxWords;
    const char* usage;
};

constexpr Verb kVerbs[] = {
        {"board", 2, 2, "board birch|cedar|damson|all|none"},
        {"plug", 1, 3, "plug [camera|camera-no-heartbeat|webcam|VID:PID] [scene=default|none]"},
        {"unplug", 1, 1, "unplug"},
        {"answer", 2, kAny,
         "answer METHOD|heartbeat|any|reset [rval=N] [param=N] [delay=TIME] [silent] "
         "[as=METHOD] [text=TEXT]"},
        {"stream", 2, kAny, "stream frame|ai|proto|stop [size=B] [blocks=K] [rate=HZ] [count=N]"},
        {"camera", 2, 3,
         "camera drop|reset|refuse|accept|garbage BYTES|chunk BYTES|hangup MODE|restart"},
        {"replay", 2, 3, "replay RECORDING [speed=X]"},
        {"mcu", 2, kAny, "mcu SETTING [VALUE...]"},
        {"sleep", 2, 2, "sleep TIME"},
        {"call", 3, kAny, "call lumacast|motor METHOD [ARG...]"},
        {"listen", 2, 3, "listen NAME [delay=TIME]"},
        {"unlisten", 2, 2, "unlisten NAME"},
        {"firmware", 3, 3, "firmware FILE BYTES"},
        {"mark", 1, 1, "mark"},
        {"expect", 3, kAny, "expect [within TIME] WHAT ..."},
};

// What may follow `expect`, and how many words it takes (itself included).
constexpr Verb kExpectations[] = {
        {"result", 2, 2, "expect result VALUE"},
        {"property", 3, 3, "expect property NAME VALUE"},
        {"log", 2, kAny, "expect log TEXT"},
        {"no-log", 2, kAny, "expect no-log TEXT"},
        {"dump", 3, kAny, "expect dump lumacast|motor TEXT"},
        {"listener", 5, 5, "expect listener NAME frames|ai|proto|callbacks OP N"},
        {"camera", 2, 5,
         "expect camera connected|disconnected | connections OP N | received METHOD OP N"},
        {"mcu", 2, kAny, "expect mcu TEXT"},
};

struct Model {
    const char* name;
    test::UsbProduct product;
};

constexpr Model kModels[] = {
        {"camera", {0x2BC5, 0x0604, 0x0100}},               // accepted, needs the heartbeat
        {"camera-no-heartbeat", {0x1D6B, 0x0102, 0x0100}},  // accepted, no heartbeat
        {"webcam", {0x046D, 0x0825, 0x0012}},               // refused
};

const Verb* findVerb(const Verb* table, size_t n, const std::string& name) {
    for (size_t i = 0; i < n; ++i) {
        if (name == table[i].name) return &table[i];
    }
    return nullptr;
}

bool fits(const Verb& v, size_t words) {
    return words >= v.minWords && (v.maxWords == kAny || words <= v.maxWords);
}

// The words as they would be typed: empty ones and those with blanks in quotes.
std::string shown(const std::vector<std::string>& w) {
    std::string out;
    for (const std::string& word : w) {
        if (!out.empty()) out += ' ';
        if (!word.empty() && word.find_first_of(" \t\"\\") == std::string::npos) {
            out += word;
            continue;
        }
        out += '"';
        for (const char c : word) {
            if (c == '"' || c == '\\') out += '\\';
            out += c;
        }
        out += '"';
    }
    return out;
}

std::string join(const std::vector<std::string>& w, size_t from) {
    std::string out;
    for (size_t i = from; i < w.size(); ++i) out += (i > from ? " " : "") + w[i];
    return out;
}

// "500ms", "2s", "1.5s"; at most an hour.
bool parseTime(const std::string& text, std::chrono::milliseconds* out) {
    double scale = 0;
    size_t digits = 0;
    if (text.size() > 2 && text.compare(text.size() - 2, 2, "ms") == 0) {
        scale = 1;
        digits = text.size() - 2;
    } else if (text.size() > 1 && text.back() == 's') {
        scale = 1000;
        digits = text.size() - 1;
    } else {
        return false;
    }
    const std::string number = text.substr(0, digits);
    char* end = nullptr;
    const double v = strtod(number.c_str(), &end);
    if (number.empty() || *end != '\0' || !(v >= 0) || v * scale > 3600e3) return false;
    *out = std::chrono::milliseconds(static_cast<long long>(v * scale));
    return true;
}

bool parseNumber(const std::string& text, long long* out) {
    char* end = nullptr;
    errno = 0;
    const long long v = strtoll(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || errno != 0) return false;
    *out = v;
    return true;
}

bool compare(long long seen, const std::string& op, long long want, bool* result) {
    if (op == ">=") {
        *result = seen >= want;
    } else if (op == "<=") {
        *result = seen <= want;
    } else if (op == "==") {
        *result = seen == want;
    } else if (op == ">") {
        *result = seen > want;
    } else if (op == "<") {
        *result = seen < want;
    } else {
        return false;
    }
    return true;
}

// The number after "key=" in a camsim status line; -1 when it is not there.
long long statusField(const std::string& status, const std::string& key) {
    const size_t at = status.find(" " + key + "=");
    if (at == std::string::npos) return -1;
    return strtoll(status.c_str() + at + key.size() + 2, nullptr, 10);
}

}  // namespace

ScenarioRunner::ScenarioRunner(demo::FakeTv* tv, const Scenario* scenario, FILE* out)
    : mTv(tv), mScenario(scenario), mOut(out) {}

bool ScenarioRunner::check(const Scenario& scenario, std::string* why) {
    bool started = false;
    for (const ScenarioLine& line : scenario.lines()) {
        const std::vector<std::string>& w = line.words;
        const Verb* verb = findVerb(kVerbs, std::size(kVerbs), w[0]);
        std::string problem;
        std::chrono::milliseconds ms;
        if (verb == nullptr) {
            problem = "unknown verb '" + w[0] + "' (see tools/scenario/README.md)";
        } else if (!fits(*verb, w.size())) {
            problem = std::string("usage: ") + verb->usage;
        } else if (w[0] == "board" && started) {
            problem = "board must come before every other line";
        } else if (w[0] == "board" &&
                   std::string(" birch cedar damson all none ").find(" " + w[1] + " ") ==
                           std::string::npos) {
            problem = std::string("usage: ") + verb->usage;
        } else if (w[0] == "sleep" && !parseTime(w[1], &ms)) {
            problem = "sleep needs a time such as 2s or 500ms";
        } else if (w[0] == "expect") {
            size_t at = 1;
            if (w[1] == "within") {
                at = 3;
                if (!parseTime(w[2], &ms)) problem = "within needs a time such as 5s or 500ms";
            }
            const Verb* what = at < w.size()
                                       ? findVerb(kExpectations, std::size(kExpectations), w[at])
                                       : nullptr;
            if (problem.empty() && what == nullptr) {
                problem =
                        "expect what? (result, property, log, no-log, dump, listener, camera, "
                        "mcu)";
            } else if (problem.empty() && !fits(*what, w.size() - at)) {
                problem = std::string("usage: ") + what->usage;
            }
        }
        if (w[0] != "board") started = true;
        if (!problem.empty()) {
            *why = scenario.where(line) + ": " + problem;
            return false;
        }
    }
    return true;
}

bool ScenarioRunner::run(std::string* why) {
    for (const ScenarioLine& line : mScenario->lines()) {
        std::vector<std::string> words = line.words;
        for (std::string& word : words) {
            for (size_t at; (at = word.find("$WORK")) != std::string::npos;) {
                word.replace(at, 5, mTv->workDir());
            }
        }
        fprintf(mOut, "%s: %s\n", mScenario->where(line).c_str(), shown(words).c_str());
        fflush(mOut);
        std::string reason;
        bool ok = (words[0] == "board" || mDaemonStarted || startDaemon(&reason)) &&
                  runLine(words, &reason);
        if (ok && mDaemonStarted && !mTv->daemonRunning(&reason)) ok = false;
        if (!ok) {
            *why = mScenario->where(line) + ": " + reason;
            return false;
        }
    }
    return mDaemonStarted || startDaemon(why);
}

bool ScenarioRunner::startDaemon(std::string* why) {
    mDaemonStarted = mTv->startDaemon("board " + mBoard, why);
    return mDaemonStarted;
}

bool ScenarioRunner::runLine(const std::vector<std::string>& w, std::string* why) {
    const std::string& verb = w[0];
    if (verb == "board") {
        mBoard = w[1];
        return true;
    }
    if (verb == "plug") return plug(w, why);
    if (verb == "unplug") {
        if (!mPlugged) {
            *why = "no camera is plugged in";
            return false;
        }
        mPlugged = false;
        return mTv->unplug(why);
    }
    if (verb == "answer") return answer(w, why);
    if (verb == "stream") return stream(w, why);
    if (verb == "camera") return camera(w, why);
    if (verb == "replay") return camsim(join(w, 0), why);
    if (verb == "mcu") return mcu(w, why);
    if (verb == "sleep") {
        std::chrono::milliseconds ms;
        parseTime(w[1], &ms);  // checked before the run
        std::this_thread::sleep_for(ms);
        return true;
    }
    if (verb == "call") return call(w, why);
    if (verb == "listen") return listen(w, why);
    if (verb == "unlisten") return unlisten(w, why);
    if (verb == "firmware") return firmware(w, why);
    if (verb == "mark") {
        mLogMark = mTv->daemonLog().size();
        for (const auto& [name, listener] : mListeners) {
            for (int k = 0; k < ScenarioListener::kKindCount; ++k) {
                mCountMarks[name][k] = listener->count(static_cast<ScenarioListener::Kind>(k));
            }
        }
        return true;
    }
    if (verb == "expect") return expect(w, why);
    *why = "unknown verb '" + verb + "'";
    return false;
}

bool ScenarioRunner::plug(const std::vector<std::string>& w, std::string* why) {
    test::UsbProduct product = kModels[0].product;
    std::string scene = "default";
    for (size_t i = 1; i < w.size(); ++i) {
        unsigned vid = 0;
        unsigned pid = 0;
        char tail = 0;
        bool known = false;
        for (const Model& m : kModels) {
            if (w[i] == m.name) {
                product = m.product;
                known = true;
            }
        }
        if (known) continue;
        if (w[i].compare(0, 6, "scene=") == 0) {
            scene = w[i].substr(6);
            if (scene != "default" && scene != "none") {
                *why = "scene is default or none";
                return false;
            }
        } else if (sscanf(w[i].c_str(), "%x:%x%c", &vid, &pid, &tail) == 2 && vid <= 0xFFFF &&
                   pid <= 0xFFFF) {
            product = {vid, pid, 0x0100};
        } else {
            *why = "plug takes camera, camera-no-heartbeat, webcam or VID:PID (hex), not '" + w[i] +
                   "'";
            return false;
        }
    }
    if (mPlugged) {
        *why = "a camera is plugged in already";
        return false;
    }
    mPlugged = mTv->plug(product, scene, why);
    return mPlugged;
}

bool ScenarioRunner::answer(const std::vector<std::string>& w, std::string* why) {
    if (w[1] == "reset") return camsim("clear-rules", why);
    std::string target = w[1] == "any" ? "default" : w[1];
    if (target != "default" && camsim::commandIdOf(target) < 0) {
        *why = "the camera is never sent '" + target +
               "' (a method of lumacast, heartbeat, any or reset)";
        return false;
    }
    target = target == "default" ? target : std::to_string(camsim::commandIdOf(target));
    std::string rule = "rule " + target;
    for (size_t i = 2; i < w.size(); ++i) {
        const std::string& o = w[i];
        std::chrono::milliseconds ms;
        if (o.compare(0, 5, "text=") == 0) {
            const std::string rest = join(w, i + 1);
            return camsim(
                    "rule-text " + target + " " + o.substr(5) + (rest.empty() ? "" : " ") + rest,
                    why);
        } else if (o == "ok") {
            continue;
        } else if (o.compare(0, 6, "delay=") == 0) {
            if (!parseTime(o.substr(6), &ms)) {
                *why = "delay needs a time such as 4s or 500ms";
                return false;
            }
            rule += " delay=" + std::to_string(ms.count());
        } else if (o.compare(0, 3, "as=") == 0) {
            const int id = camsim::commandIdOf(o.substr(3));
            rule += " reply_id=" + (id >= 0 ? std::to_string(id) : o.substr(3));
        } else {
            // rval=, param= and silent are camsim's own words.
            rule += " " + o;
        }
    }
    return camsim(rule, why);
}

bool ScenarioRunner::stream(const std::vector<std::string>& w, std::string* why) {
    if (w[1] == "stop") return camsim("stop-streams", why);
    const std::string kind = w[1] == "ai" ? "json" : w[1] == "proto" ? "protobuf" : w[1];
    if (kind != "json" && kind != "protobuf" && kind != "frame") {
        *why = "stream frame, ai, proto or stop";
        return false;
    }
    return camsim("stream " + kind + (w.size() > 2 ? " " + join(w, 2) : ""), why);
}

bool ScenarioRunner::camera(const std::vector<std::string>& w, std::string* why) {
    const std::string& a = w[1];
    if (a == "restart") {
        // The camera's software reboots while it stays plugged in; its rules are gone.
        return mTv->restartCamsim(w.size() > 2 ? w[2] : "default", why);
    }
    if (w.size() == 2 && a == "drop") return camsim("drop", why);
    if (w.size() == 2 && a == "reset") return camsim("drop reset", why);
    if (w.size() == 2 && a == "refuse") return camsim("refuse on", why);
    if (w.size() == 2 && a == "accept") return camsim("refuse off", why);
    // hangup: every connection accepted from now on is ended at once (close, partial,
    // reset, garbage; off ends that).
    if (w.size() == 3 && (a == "garbage" || a == "chunk" || a == "hangup")) {
        return camsim(a + " " + w[2], why);
    }
    *why = "camera drop, reset, refuse, accept, garbage BYTES, chunk BYTES, hangup MODE or "
           "restart [SCENE]";
    return false;
}

bool ScenarioRunner::mcu(const std::vector<std::string>& w, std::string* why) {
    static const char* const kBirch[] = {"marker", "version-crc", "ack",
                                         "status", "status-head", "status-crc"};
    static const char* const kCedar[] = {"state",       "rise",           "ready-after",
                                         "reject-info", "reject-package", "reject-finish"};
    std::string prefix;
    for (const char* s : kBirch) {
        if (w[1] == s) prefix = "birch ";
    }
    for (const char* s : kCedar) {
        if (w[1] == s) prefix = "cedar 2 ";
    }
    // The motor MCU of a Cedar board sits on i2c-2.
    if (w[1] == "version") prefix = mBoard == "birch" ? "birch " : "cedar 2 ";
    return devsim(prefix + join(w, 1), why);
}

bool ScenarioRunner::services(std::string* why) {
    if (mLumacast != nullptr) return true;
    android::ProcessState::self()->startThreadPool();
    const auto sm = android::defaultServiceManager();
    mLumacast = android::interface_cast<ILumacast>(
            sm->checkService(android::String16("lumacastservice")));
    mMotor = android::interface_cast<IKCameraMotor>(
            sm->checkService(android::String16("cameramotorservice")));
    if (mLumacast == nullptr || mMotor == nullptr) {
        *why = "the daemon's services are not registered";
        mLumacast = nullptr;
        return false;
    }
    return true;
}

bool ScenarioRunner::call(const std::vector<std::string>& w, std::string* why) {
    if (!services(why)) return false;
    const std::vector<std::string> args(w.begin() + 3, w.end());
    ctl::Value result;
    std::string error;
    ctl::CallResult r;
    if (w[1] == "lumacast") {
        r = ctl::MethodTable::call(ctl::MethodTable::lumacast(), *mLumacast, w[2], args, &result,
                                   &error);
    } else if (w[1] == "motor") {
        r = ctl::MethodTable::call(ctl::MethodTable::motor(), *mMotor, w[2], args, &result, &error);
    } else {
        *why = "call lumacast or motor, not '" + w[1] + "'";
        return false;
    }
    if (r == ctl::CallResult::kUsage) {
        *why = error;
        return false;
    }
    mHaveResult = true;
    mLastResult = r == ctl::CallResult::kOk ? result.toString() : "failed";
    fprintf(mOut, "    -> %s%s\n", mLastResult.c_str(),
            r == ctl::CallResult::kOk ? "" : (" (" + error + ")").c_str());
    return true;
}

bool ScenarioRunner::listen(const std::vector<std::string>& w, std::string* why) {
    std::chrono::milliseconds delay(0);
    if (w.size() > 2 && (w[2].compare(0, 6, "delay=") != 0 || !parseTime(w[2].substr(6), &delay))) {
        *why = "listen NAME [delay=TIME]";
        return false;
    }
    if (mListeners.count(w[1]) != 0) {
        *why = "a listener named " + w[1] + " listens already";
        return false;
    }
    if (!services(why)) return false;
    const sp<ScenarioListener> listener = new ScenarioListener(delay);
    bool registered = false;
    const android::binder::Status st = mLumacast->setCallback(listener, &registered);
    if (!st.isOk() || !registered) {
        *why = "setCallback refused the listener: " + std::string(st.toString8().c_str());
        return false;
    }
    mListeners[w[1]] = listener;
    mCountMarks.erase(w[1]);
    return true;
}

bool ScenarioRunner::unlisten(const std::vector<std::string>& w, std::string* why) {
    const auto it = mListeners.find(w[1]);
    if (it == mListeners.end()) {
        *why = "no listener named " + w[1];
        return false;
    }
    bool removed = false;
    const android::binder::Status st = mLumacast->removeCallback(it->second, &removed);
    mListeners.erase(it);
    if (!st.isOk() || !removed) {
        *why = "removeCallback refused the listener";
        return false;
    }
    return true;
}

bool ScenarioRunner::firmware(const std::vector<std::string>& w, std::string* why) {
    long long size = 0;
    if (!parseNumber(w[2], &size) || size < 0 || size > 16 * 1024 * 1024 ||
        w[1].find('/') != std::string::npos) {
        *why = "firmware NAME BYTES: a file name in the work folder and at most 16 MiB";
        return false;
    }
    std::string bytes(static_cast<size_t>(size), '\0');
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 31 + 7);
    std::ofstream out(mTv->path(w[1]), std::ios::binary);
    out << bytes;
    if (!out.flush()) {
        *why = "cannot write " + mTv->path(w[1]);
        return false;
    }
    return true;
}

bool ScenarioRunner::expect(const std::vector<std::string>& w, std::string* why) {
    std::chrono::milliseconds wait = kDefaultWait;
    size_t at = 1;
    if (w[1] == "within") {
        parseTime(w[2], &wait);  // checked before the run
        at = 3;
    }
    const std::vector<std::string> what(w.begin() + static_cast<long>(at), w.end());
    // The last call's result does not change while we wait.
    const auto deadline = Clock::now() + (what[0] == "result" ? Clock::duration::zero() : wait);
    for (;;) {
        std::string seen;
        if (holds(what, &seen, why)) return true;
        if (!why->empty()) return false;
        if (Clock::now() >= deadline) {
            *why = "expected " + shown(what) + "; saw " + seen;
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(what[0] == "dump" ? 200 : 50));
    }
}

bool ScenarioRunner::holds(const std::vector<std::string>& w, std::string* seen, std::string* why) {
    const std::string& kind = w[0];
    if (kind == "result") {
        if (!mHaveResult) {
            *why = "expect result needs a call before it";
            return false;
        }
        *seen = mLastResult;
        return mLastResult == w[1];
    }
    if (kind == "property") {
        *seen = "'" + mTv->property(w[1]) + "'";
        return mTv->property(w[1]) == w[2];
    }
    if (kind == "log" || kind == "no-log") {
        const std::string log = mTv->daemonLog();
        const std::string since = log.substr(std::min(mLogMark, log.size()));
        const std::string text = join(w, 1);
        const size_t found = since.find(text);
        if (kind == "no-log" && found != std::string::npos) {
            const size_t start = since.rfind('\n', found);
            const size_t end = since.find('\n', found);
            *seen = since.substr(start == std::string::npos ? 0 : start + 1,
                                 end == std::string::npos ? std::string::npos : end - (start + 1));
        } else if (kind == "log") {
            *seen = "no such line in lumacastd's log" + std::string(mLogMark ? " since mark" : "") +
                    "; it ends:" + lastLines(since, 5);
        }
        return (found != std::string::npos) == (kind == "log");
    }
    if (kind == "dump") {
        const demo::FakeTv::CtlResult r = mTv->ctl({"dump", w[1]});
        *seen = r.exitCode == 0 ? "a dump without it:\n" + r.out : "dump failed: " + r.err;
        return r.exitCode == 0 && r.out.find(join(w, 2)) != std::string::npos;
    }
    long long want = 0;
    bool result = false;
    if (kind == "listener") {
        const auto it = mListeners.find(w[1]);
        static const std::pair<const char*, int> kKinds[] = {{"frames", ScenarioListener::kFrame},
                                                             {"ai", ScenarioListener::kAi},
                                                             {"proto", ScenarioListener::kProto},
                                                             {"callbacks", -1}};
        int k = -2;
        for (const auto& p : kKinds) {
            if (w[2] == p.first) k = p.second;
        }
        if (it == mListeners.end() || k == -2 || !parseNumber(w[4], &want)) {
            *why = "usage: expect listener NAME frames|ai|proto|callbacks OP N (of a listener)";
            return false;
        }
        long long n = 0;
        for (int kind = 0; kind < ScenarioListener::kKindCount; ++kind) {
            if (k >= 0 && kind != k) continue;
            const auto mark = mCountMarks.find(w[1]);
            n += static_cast<long long>(
                    it->second->count(static_cast<ScenarioListener::Kind>(kind)) -
                    (mark == mCountMarks.end() ? 0 : mark->second[kind]));
        }
        *seen = std::to_string(n);
        if (!compare(n, w[3], want, &result)) *why = "OP is one of >= <= == > <";
        return result;
    }
    if (kind == "camera") {
        const std::string status = mTv->camsim("status");
        *seen = status;
        if (w.size() == 2 && (w[1] == "connected" || w[1] == "disconnected")) {
            return status.find(w[1] == "connected" ? "connected=1" : "connected=0") !=
                   std::string::npos;
        }
        long long n = -1;
        if (w.size() == 4 && w[1] == "connections" && parseNumber(w[3], &want)) {
            n = statusField(status, "connections");
        } else if (w.size() == 5 && w[1] == "received" && camsim::commandIdOf(w[2]) >= 0 &&
                   parseNumber(w[4], &want)) {
            // Methods that share an id count together: the camera cannot tell them apart.
            const std::string commands = mTv->camsim("commands");
            std::istringstream lines(commands);
            std::string line;
            std::getline(lines, line);  // "ok N"
            n = 0;
            while (std::getline(lines, line)) {
                if (camsim::jsonInt(line, "cmd_id") == camsim::commandIdOf(w[2])) ++n;
            }
            *seen = std::to_string(n) + " " + w[2] + " commands";
        } else {
            *why = "usage: expect camera connected|disconnected | connections OP N | received "
                   "METHOD OP N";
            return false;
        }
        if (n < 0) return false;  // camsim is not running
        if (!compare(n, w[w.size() - 2], want, &result)) *why = "OP is one of >= <= == > <";
        return result;
    }
    if (kind == "mcu") {
        *seen = mTv->devsim("stats");
        return seen->find(join(w, 1)) != std::string::npos;
    }
    *why = "expect what?";
    return false;
}

bool ScenarioRunner::camsim(const std::string& command, std::string* why) {
    const std::string reply = mTv->camsim(command);
    if (reply.compare(0, 2, "ok") == 0) return true;
    *why = "camsim: " + command + ": " + reply;
    return false;
}

bool ScenarioRunner::devsim(const std::string& command, std::string* why) {
    const std::string reply = mTv->devsim(command);
    if (reply.compare(0, 2, "ok") == 0) return true;
    *why = "devsim: " + command + ": " + reply;
    return false;
}

}  // namespace lumacast::scenario
