#include "tools/lumacastctl/MethodTable.h"

#include "tools/lumacastctl/Arguments.h"

using android::binder::Status;
using kora::lumacast::IKCameraMotor;
using kora::lumacast::ILumacast;

namespace lumacast::ctl {

namespace {

constexpr ValueType B = ValueType::kBool;
constexpr ValueType I = ValueType::kInt;
constexpr ValueType S = ValueType::kString;
constexpr ValueType N = ValueType::kNone;

// Adapters from the generated signatures to one calling shape; `a` has been checked
// against the parameter list already.
template <typename Interface, typename Out>
using Fn0 = Status (Interface::*)(Out*);

template <typename Interface, typename Out, ValueType T>
std::function<Status(Interface&, const std::vector<Value>&, Value*)> noArgs(
        Fn0<Interface, Out> fn) {
    return [fn](Interface& s, const std::vector<Value>&, Value* r) {
        Out out{};
        const Status st = (s.*fn)(&out);
        if constexpr (T == ValueType::kBool) *r = Value::ofBool(out);
        if constexpr (T == ValueType::kInt) *r = Value::ofInt(out);
        if constexpr (T == ValueType::kString) *r = Value::ofString(out);
        return st;
    };
}

}  // namespace

const char* typeName(ValueType type) {
    switch (type) {
        case ValueType::kBool:
            return "bool";
        case ValueType::kInt:
            return "int";
        case ValueType::kString:
            return "string";
        case ValueType::kNone:
            break;
    }
    return "void";
}

const std::vector<Method<ILumacast>>& MethodTable::lumacast() {
    using M = Method<ILumacast>;
    using L = ILumacast;
    static const std::vector<M> table = {
            {"setZoomSwitch",
             {{B, "on"}},
             B,
             [](L& s, const std::vector<Value>& a, Value* r) {
                 bool out = false;
                 const Status st = s.setZoomSwitch(a[0].b, &out);
                 *r = Value::ofBool(out);
                 return st;
             }},
            {"getZoomSwitch", {}, B, noArgs<L, bool, B>(&L::getZoomSwitch)},
            {"getAiAlgoList", {}, I, noArgs<L, int32_t, I>(&L::getAiAlgoList)},
            {"setAiSubscribeType",
             {{I, "type"}},
             B,
             [](L& s, const std::vector<Value>& a, Value* r) {
                 bool out = false;
                 const Status st = s.setAiSubscribeType(a[0].i, &out);
                 *r = Value::ofBool(out);
                 return st;
             }},
            {"getAiSubscribeStatus", {}, I, noArgs<L, int32_t, I>(&L::getAiSubscribeStatus)},
            {"setAiProperty",
             {{S, "param"}},
             B,
             [](L& s, const std::vector<Value>& a, Value* r) {
                 bool out = false;
                 const Status st = s.setAiProperty(a[0].s, &out);
                 *r = Value::ofBool(out);
                 return st;
             }},
            {"getAiProperty",
             {{S, "param"}},
             S,
             [](L& s, const std::vector<Value>& a, Value* r) {
                 std::string out;
                 const Status st = s.getAiProperty(a[0].s, &out);
                 *r = Value::ofString(out);
                 return st;
             }},
            {"setAiSubscribe",
             {{I, "param"}, {S, "option"}},
             B,
             [](L& s, const std::vector<Value>& a, Value* r) {
                 bool out = false;
                 const Status st = s.setAiSubscribe(a[0].i, a[1].s, &out);
                 *r = Value::ofBool(out);
                 return st;
             }},
            {"getAiSubscribe", {}, S, noArgs<L, std::string, S>(&L::getAiSubscribe)},
            {"grabFrame",
             {{I, "format"}, {S, "resolution"}},
             B,
             [](L& s, const std::vector<Value>& a, Value* r) {
                 bool out = false;
                 const Status st = s.grabFrame(a[0].i, a[1].s, &out);
                 *r = Value::ofBool(out);
                 return st;
             }},
            {"sendDoa",
             {{S, "data"}},
             B,
             [](L& s, const std::vector<Value>& a, Value* r) {
                 bool out = false;
                 const Status st = s.sendDoa(a[0].s, &out);
                 *r = Value::ofBool(out);
                 return st;
             }},
            {"setAutoFraming",
             {{I, "param"}},
             B,
             [](L& s, const std::vector<Value>& a, Value* r) {
                 bool out = false;
                 const Status st = s.setAutoFraming(a[0].i, &out);
                 *r = Value::ofBool(out);
                 return st;
             }},
            {"getAutoFraming", {}, B, noArgs<L, bool, B>(&L::getAutoFraming)},
            {"setZoomMode",
             {{I, "param"}, {I, "mode"}},
             B,
             [](L& s, const std::vector<Value>& a, Value* r) {
                 bool out = false;
                 const Status st = s.setZoomMode(a[0].i, a[1].i, &out);
                 *r = Value::ofBool(out);
                 return st;
             }},
            {"getZoomMode", {}, S, noArgs<L, std::string, S>(&L::getZoomMode)},
    };
    return table;
}

const std::vector<Method<IKCameraMotor>>& MethodTable::motor() {
    using M = Method<IKCameraMotor>;
    using K = IKCameraMotor;
    static const std::vector<M> table = {
            {"set_client_type",
             {{S, "type"}},
             N,
             [](K& s, const std::vector<Value>& a, Value* r) {
                 *r = Value();
                 return s.set_client_type(a[0].s);
             }},
            {"motor_down", {}, I, noArgs<K, int32_t, I>(&K::motor_down)},
            {"motor_up", {}, I, noArgs<K, int32_t, I>(&K::motor_up)},
            {"get_motor_status", {}, I, noArgs<K, int32_t, I>(&K::get_motor_status)},
            {"get_rise_time", {}, I, noArgs<K, int32_t, I>(&K::get_rise_time)},
            {"get_switch_status", {}, B, noArgs<K, bool, B>(&K::get_switch_status)},
            {"is_support_motor", {}, B, noArgs<K, bool, B>(&K::is_support_motor)},
            {"set_status",
             {{B, "status"}},
             N,
             [](K& s, const std::vector<Value>& a, Value* r) {
                 *r = Value();
                 return s.set_status(a[0].b);
             }},
            {"get_status", {}, B, noArgs<K, bool, B>(&K::get_status)},
            {"get_mcu_version", {}, S, noArgs<K, std::string, S>(&K::get_mcu_version)},
            {"mcu_upgrade",
             {{S, "path"}},
             I,
             [](K& s, const std::vector<Value>& a, Value* r) {
                 int32_t out = 0;
                 const Status st = s.mcu_upgrade(a[0].s, &out);
                 *r = Value::ofInt(out);
                 return st;
             }},
    };
    return table;
}

bool MethodTable::parseArgument(ValueType type, const std::string& text, Value* out) {
    switch (type) {
        case ValueType::kBool: {
            bool v = false;
            if (!parseBool(text, &v)) return false;
            *out = Value::ofBool(v);
            return true;
        }
        case ValueType::kInt: {
            int32_t v = 0;
            if (!parseInt32(text, &v)) return false;
            *out = Value::ofInt(v);
            return true;
        }
        case ValueType::kString:
            *out = Value::ofString(text);
            return true;
        case ValueType::kNone:
            break;
    }
    return false;
}

template <typename Interface>
bool MethodTable::parse(const std::vector<Method<Interface>>& table, const std::string& name,
                        const std::vector<std::string>& args, const Method<Interface>** method,
                        std::vector<Value>* values, std::string* error) {
    const Method<Interface>* found = nullptr;
    for (const auto& m : table) {
        if (name == m.name) found = &m;
    }
    if (found == nullptr) {
        *error = "unknown method '" + name + "'";
        return false;
    }
    if (args.size() != found->params.size()) {
        *error = name + " takes " + std::to_string(found->params.size()) + " argument" +
                 (found->params.size() == 1 ? "" : "s") + ", got " + std::to_string(args.size());
        return false;
    }
    std::vector<Value> parsed(args.size());
    for (size_t i = 0; i < args.size(); ++i) {
        const auto& p = found->params[i];
        if (!parseArgument(p.type, args[i], &parsed[i])) {
            *error = std::string("argument ") + p.name + " of " + name + " must be " +
                     (p.type == ValueType::kBool ? "true, false, 1 or 0"
                                                 : "a 32-bit integer (decimal or 0x hex)") +
                     ", got '" + args[i] + "'";
            return false;
        }
    }
    *method = found;
    *values = std::move(parsed);
    return true;
}

template <typename Interface>
CallResult MethodTable::call(const std::vector<Method<Interface>>& table,
                             typename Method<Interface>::Service& service, const std::string& name,
                             const std::vector<std::string>& args, Value* result,
                             std::string* error) {
    const Method<Interface>* method = nullptr;
    std::vector<Value> values;
    if (!parse(table, name, args, &method, &values, error)) return CallResult::kUsage;
    const Status status = method->invoke(service, values, result);
    if (!status.isOk()) {
        *error = std::string(status.toString8().c_str());
        return CallResult::kFailed;
    }
    return CallResult::kOk;
}

template <typename Interface>
std::string MethodTable::describe(const std::vector<Method<Interface>>& table) {
    std::string out;
    for (const auto& m : table) {
        std::string line = std::string(m.name) + "(";
        for (size_t i = 0; i < m.params.size(); ++i) {
            if (i > 0) line += ", ";
            line += std::string(typeName(m.params[i].type)) + " " + m.params[i].name;
        }
        line += ")";
        if (m.result != ValueType::kNone) line += " -> " + std::string(typeName(m.result));
        out += line + "\n";
    }
    return out;
}

template CallResult MethodTable::call<ILumacast>(const std::vector<Method<ILumacast>>&, ILumacast&,
                                                 const std::string&,
                                                 const std::vector<std::string>&, Value*,
                                                 std::string*);
template CallResult MethodTable::call<IKCameraMotor>(const std::vector<Method<IKCameraMotor>>&,
                                                     IKCameraMotor&, const std::string&,
                                                     const std::vector<std::string>&, Value*,
                                                     std::string*);
template bool MethodTable::parse<ILumacast>(const std::vector<Method<ILumacast>>&,
                                            const std::string&, const std::vector<std::string>&,
                                            const Method<ILumacast>**, std::vector<Value>*,
                                            std::string*);
template bool MethodTable::parse<IKCameraMotor>(const std::vector<Method<IKCameraMotor>>&,
                                                const std::string&, const std::vector<std::string>&,
                                                const Method<IKCameraMotor>**, std::vector<Value>*,
                                                std::string*);
template std::string MethodTable::describe<ILumacast>(const std::vector<Method<ILumacast>>&);
template std::string MethodTable::describe<IKCameraMotor>(
        const std::vector<Method<IKCameraMotor>>&);

}  // namespace lumacast::ctl
