#pragma once

#include <string>

// The `cmd_id` the daemon puts in each command frame, by the method that sends it. Two pairs
// of methods share an id (14 and 15, and likewise 1 and 2), so a rule for one answers both;
// 254 is the link's heartbeat.
namespace lumacast::camsim {

struct CommandId {
    const char* method;
    int cmdId;
};

constexpr CommandId kCommandIds[] = {
        {"setAiSubscribeType", 1}, {"setAiSubscribe", 1}, {"getAiSubscribeStatus", 2},
        {"getAiSubscribe", 2},     {"grabFrame", 3},      {"sendDoa", 4},
        {"setAiProperty", 5},      {"getAiProperty", 6},  {"setAutoFraming", 12},
        {"getAutoFraming", 13},    {"setZoomSwitch", 14}, {"setZoomMode", 14},
        {"getZoomSwitch", 15},     {"getZoomMode", 15},   {"getAiAlgoList", 16},
        {"heartbeat", 254},
};

// The id of a method name (or "heartbeat"); -1 for a name the camera is never sent.
inline int commandIdOf(const std::string& method) {
    for (const CommandId& c : kCommandIds) {
        if (method == c.method) return c.cmdId;
    }
    return -1;
}

}  // namespace lumacast::camsim
