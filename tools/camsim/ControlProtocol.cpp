#include "tools/camsim/ControlProtocol.h"

#include <errno.h>
#include <stdlib.h>

#include <random>
#include <sstream>
#include <vector>

#include "tools/camsim/CommandIds.h"
#include "tools/camsim/Recording.h"

namespace lumacast::camsim {

namespace {

std::vector<std::string> words(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> out;
    std::string w;
    while (in >> w) out.push_back(w);
    return out;
}

bool parseLong(const std::string& text, long min, long max, long* out) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    const long v = strtol(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || v < min || v > max) return false;
    *out = v;
    return true;
}

bool parseDouble(const std::string& text, double* out) {
    if (text.empty()) return false;
    char* end = nullptr;
    const double v = strtod(text.c_str(), &end);
    if (*end != '\0' || v < 0) return false;
    *out = v;
    return true;
}

// "key=value" split; false for a bare word.
bool keyValue(const std::string& word, std::string* key, std::string* value) {
    const size_t eq = word.find('=');
    if (eq == std::string::npos) return false;
    *key = word.substr(0, eq);
    *value = word.substr(eq + 1);
    return true;
}

// Everything after the first `n` words of the line, as typed.
std::string restAfter(const std::string& line, size_t n) {
    size_t at = 0;
    for (size_t i = 0; i < n; ++i) {
        at = line.find_first_not_of(" \t", at);
        if (at == std::string::npos) return "";
        at = line.find_first_of(" \t", at);
        if (at == std::string::npos) return "";
    }
    at = line.find_first_not_of(" \t", at);
    return at == std::string::npos ? "" : line.substr(at);
}

std::string error(const std::string& why) { return "error: " + why; }

}  // namespace

const char* ControlProtocol::usage() {
    return "commands:\n"
           "  rule <cmd_id|method|default> [rval=N] [param=N] [reply_id=N] [delay=MS] [silent]\n"
           "  rule-text <cmd_id|method|default> <result text sent verbatim>\n"
           "  clear-rules\n"
           "  stream <json|protobuf|frame|TYPE> [size=BYTES] [blocks=K] [rate=HZ] [count=N]\n"
           "         [text=PAYLOAD (last)]\n"
           "  replay <recording> [speed=X] (what `lumacastctl listen --record` kept)\n"
           "  stop-streams                (ends replays too)\n"
           "  send-result <text>          send-json <text>\n"
           "  garbage <bytes> [seed]\n"
           "  chunk <bytes> [pause_us]    (0 bytes: whole writes)\n"
           "  drop [reset]\n"
           "  refuse on|off\n"
           "  hangup close|partial|reset|garbage|off\n"
           "  status                      commands\n"
           "  quit\n";
}

std::string ControlProtocol::execute(const std::string& line) {
    const std::vector<std::string> w = words(line);
    if (w.empty() || w[0][0] == '#') return "ok";
    const std::string& verb = w[0];

    if (verb == "rule" || verb == "rule-text") {
        if (w.size() < 2) return error("rule needs a cmd_id or 'default'");
        long id = 0;
        const bool isDefault = w[1] == "default";
        if (!isDefault && commandIdOf(w[1]) >= 0) {
            id = commandIdOf(w[1]);
        } else if (!isDefault && !parseLong(w[1], 0, 0x7fffffff, &id)) {
            return error("bad cmd_id or method " + w[1]);
        }
        ReplyRule rule;
        if (verb == "rule-text") {
            rule.text = restAfter(line, 2);
            if (rule.text.empty()) return error("rule-text needs a text");
        } else {
            for (size_t i = 2; i < w.size(); ++i) {
                std::string key, value;
                long v = 0;
                if (w[i] == "silent") {
                    rule.silent = true;
                } else if (!keyValue(w[i], &key, &value)) {
                    return error("bad rule option " + w[i]);
                } else if (key == "reply_id" && commandIdOf(value) >= 0) {
                    rule.replyId = commandIdOf(value);
                } else if (!parseLong(value, -0x80000000L, 0x7fffffffL, &v)) {
                    return error("bad rule option " + w[i]);
                } else if (key == "rval") {
                    rule.rval = static_cast<int32_t>(v);
                } else if (key == "param") {
                    rule.param = static_cast<int32_t>(v);
                } else if (key == "reply_id") {
                    rule.replyId = static_cast<int32_t>(v);
                } else if (key == "delay" && v >= 0) {
                    rule.delayMs = static_cast<int>(v);
                } else {
                    return error("bad rule option " + w[i]);
                }
            }
        }
        if (isDefault) {
            mCamera->setDefaultRule(rule);
        } else {
            mCamera->setRule(static_cast<int>(id), rule);
        }
        return "ok";
    }
    if (verb == "clear-rules") {
        mCamera->clearRules();
        return "ok";
    }
    if (verb == "stream") {
        if (w.size() < 2) return error("stream needs a data type");
        StreamPlan plan;
        long type = 0;
        if (w[1] == "json") {
            plan.dataType = kTypeAiJson;
        } else if (w[1] == "protobuf") {
            plan.dataType = kTypeAiProtobuf;
        } else if (w[1] == "frame") {
            plan.dataType = kTypeFrame;
        } else if (parseLong(w[1], 0, 0xffff, &type)) {
            plan.dataType = static_cast<uint16_t>(type);
        } else {
            return error("bad data type " + w[1]);
        }
        for (size_t i = 2; i < w.size(); ++i) {
            std::string key, value;
            long v = 0;
            if (!keyValue(w[i], &key, &value)) return error("bad stream option " + w[i]);
            if (key == "text") {
                // Runs to the end of the line, blanks included.
                const std::string rest = restAfter(line, i);
                plan.payload = rest.substr(rest.find('=') + 1);
                break;
            } else if (key == "rate") {
                if (!parseDouble(value, &plan.messagesPerSecond)) return error("bad rate " + value);
            } else if (!parseLong(value, 0, 0x7fffffff, &v)) {
                return error("bad stream option " + w[i]);
            } else if (key == "size" && v > 0) {
                plan.blockSize = static_cast<size_t>(v);
            } else if (key == "blocks" && v > 0) {
                plan.blocksPerMessage = static_cast<uint32_t>(v);
            } else if (key == "count") {
                plan.maxMessages = static_cast<uint64_t>(v);
            } else {
                return error("bad stream option " + w[i]);
            }
        }
        mCamera->startStream(plan);
        return "ok";
    }
    if (verb == "replay") {
        double speed = 1;
        if (w.size() < 2 || w.size() > 3)
            return error("replay FILE [speed=X] (a path without blanks)");
        // Bounded so that a year-long recording's offsets still fit the clock.
        if (w.size() == 3 &&
            (w[2].compare(0, 6, "speed=") != 0 || !parseDouble(w[2].substr(6), &speed) ||
             !(speed >= 0.01) || speed > 1000)) {
            return error("bad speed " + w[2] + " (0.01 to 1000)");
        }
        std::vector<RecordedCallback> records;
        std::string why;
        if (!Recording::load(w[1], &records, &why)) return error(why);
        std::vector<TimedMessage> messages = Recording::toMessages(records);
        const size_t count = messages.size();
        mCamera->startReplay(std::move(messages), speed);
        return "ok " + std::to_string(count) + " messages";
    }
    if (verb == "stop-streams") {
        mCamera->stopStreams();
        return "ok";
    }
    if (verb == "send-result" || verb == "send-json") {
        const std::string text = restAfter(line, 1);
        if (text.empty()) return error(verb + " needs a text");
        const std::string bytes =
                verb == "send-result" ? resultMessage(text) : dataMessage(kTypeAiJson, {text});
        return mCamera->send(bytes) ? "ok" : error("not connected");
    }
    if (verb == "garbage") {
        long n = 0;
        long seed = 1;
        if (w.size() < 2 || !parseLong(w[1], 1, 64L * 1024 * 1024, &n)) {
            return error("garbage needs a byte count");
        }
        if (w.size() > 2 && !parseLong(w[2], 0, 0x7fffffff, &seed)) return error("bad seed");
        std::mt19937 random(static_cast<uint32_t>(seed));
        std::string bytes(static_cast<size_t>(n), '\0');
        for (char& c : bytes) c = static_cast<char>(random());
        return mCamera->send(bytes) ? "ok" : error("not connected");
    }
    if (verb == "chunk") {
        long bytes = 0;
        long pause = 0;
        if (w.size() < 2 || !parseLong(w[1], 0, 0x7fffffff, &bytes)) return error("bad chunk size");
        if (w.size() > 2 && !parseLong(w[2], 0, 10000000, &pause)) return error("bad pause");
        mCamera->setChunking(static_cast<size_t>(bytes), std::chrono::microseconds(pause));
        return "ok";
    }
    if (verb == "drop") {
        mCamera->dropConnection(w.size() > 1 && w[1] == "reset");
        return "ok";
    }
    if (verb == "refuse") {
        if (w.size() < 2 || (w[1] != "on" && w[1] != "off")) return error("refuse on|off");
        std::string why;
        return mCamera->setRefusing(w[1] == "on", &why) ? "ok" : error(why);
    }
    if (verb == "hangup") {
        static const std::pair<const char*, Hangup> kModes[] = {
                {"off", Hangup::kOff},         {"close", Hangup::kClose},
                {"partial", Hangup::kPartial}, {"reset", Hangup::kReset},
                {"garbage", Hangup::kGarbage},
        };
        for (const auto& mode : kModes) {
            if (w.size() == 2 && w[1] == mode.first) {
                mCamera->setHangup(mode.second);
                return "ok";
            }
        }
        return error("hangup close|partial|reset|garbage|off");
    }
    if (verb == "status") {
        return "ok connections=" + std::to_string(mCamera->connectionCount()) +
               " connected=" + (mCamera->isConnected() ? "1" : "0") +
               " commands=" + std::to_string(mCamera->commandCount()) +
               " streamed=" + std::to_string(mCamera->streamedMessages());
    }
    if (verb == "commands") {
        std::string out = "ok " + std::to_string(mCamera->commandCount());
        for (const Command& c : mCamera->commands()) out += "\n  " + c.text;
        return out;
    }
    if (verb == "quit") {
        mQuit = true;
        return "ok";
    }
    if (verb == "help") return std::string("ok\n") + usage();
    return error("unknown command '" + verb + "' (try help)");
}

}  // namespace lumacast::camsim
