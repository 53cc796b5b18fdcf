#pragma once

#include <binder/Status.h>
#include <kora/lumacast/IKCameraMotor.h>
#include <kora/lumacast/ILumacast.h>

#include <functional>
#include <string>
#include <vector>

#include "tools/lumacastctl/Value.h"

namespace lumacast::ctl {

// Every method of one binder interface that can be called from the command line, with its
// typed parameters and result.
template <typename Interface>
struct Method {
    struct Param {
        ValueType type;
        const char* name;
    };
    // Not deduced from a call's arguments: a subclass of Interface is passed as one.
    using Service = Interface;
    const char* name;
    std::vector<Param> params;
    ValueType result;
    std::function<android::binder::Status(Interface&, const std::vector<Value>&, Value*)> invoke;
};

enum class CallResult {
    kOk,
    kUsage,   // unknown method or arguments that do not fit it; *error says which
    kFailed,  // the transaction failed or the service answered an exception; *error says how
};

class MethodTable {
  public:
    static const std::vector<Method<kora::lumacast::ILumacast>>& lumacast();
    static const std::vector<Method<kora::lumacast::IKCameraMotor>>& motor();

    // Finds `name` and parses `args` by its parameter types; false with *error otherwise.
    template <typename Interface>
    static bool parse(const std::vector<Method<Interface>>& table, const std::string& name,
                      const std::vector<std::string>& args, const Method<Interface>** method,
                      std::vector<Value>* values, std::string* error);

    // parse(), then the call.
    template <typename Interface>
    static CallResult call(const std::vector<Method<Interface>>& table,
                           typename Method<Interface>::Service& service, const std::string& name,
                           const std::vector<std::string>& args, Value* result, std::string* error);

    // "name(type param, ...) -> type", one line per method.
    template <typename Interface>
    static std::string describe(const std::vector<Method<Interface>>& table);

  private:
    static bool parseArgument(ValueType type, const std::string& text, Value* out);
};

}  // namespace lumacast::ctl
