#pragma once

#include <stdint.h>

#include <string>

namespace lumacast::ctl {

enum class ValueType { kNone, kBool, kInt, kString };

// One argument or result of a service method.
struct Value {
    ValueType type = ValueType::kNone;
    bool b = false;
    int32_t i = 0;
    std::string s;

    static Value ofBool(bool v) {
        Value x;
        x.type = ValueType::kBool;
        x.b = v;
        return x;
    }
    static Value ofInt(int32_t v) {
        Value x;
        x.type = ValueType::kInt;
        x.i = v;
        return x;
    }
    static Value ofString(std::string v) {
        Value x;
        x.type = ValueType::kString;
        x.s = std::move(v);
        return x;
    }

    // "true"/"false", a decimal number or the string itself; empty for kNone.
    std::string toString() const {
        switch (type) {
            case ValueType::kBool:
                return b ? "true" : "false";
            case ValueType::kInt:
                return std::to_string(i);
            case ValueType::kString:
                return s;
            case ValueType::kNone:
                break;
        }
        return "";
    }
};

const char* typeName(ValueType type);

}  // namespace lumacast::ctl
