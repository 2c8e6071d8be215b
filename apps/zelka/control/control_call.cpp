#include "apps/zelka/control/control_call.h"

#include <wx/log.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "apps/zelka/version.h"
#include "zelka_core/text.h"

extern const char kControlDescription[];  // docs/com.orvane.zelka.varlink

using ZelkaCore::Json;
using ZelkaCore::VarlinkCall;
using ZelkaCore::VarlinkReply;

namespace {

// The whole description of the interface that every service has, as the protocol gives it.
constexpr const char* kServiceDescription =
    R"(# The Varlink Service Interface is provided by every varlink service. It
# describes the service and the interfaces it implements.
interface org.varlink.service

# Get a list of all the interfaces a service provides and information
# about the implementation.
method GetInfo() -> (
  vendor: string,
  product: string,
  version: string,
  url: string,
  interfaces: []string
)

# Get the description of an interface that is implemented by this service.
method GetInterfaceDescription(interface: string) -> (description: string)

# The requested interface was not found.
error InterfaceNotFound (interface: string)

# The requested method was not found
error MethodNotFound (method: string)

# The interface defines the requested method, but the service does not
# implement it.
error MethodNotImplemented (method: string)

# One of the passed parameters is invalid.
error InvalidParameter (parameter: string)

# Client is denied access
error PermissionDenied ()

# Method is expected to be called with 'more' set to true, but wasn't
error ExpectedMore ()
)";

ControlError ServiceError(const char* name, const char* parameter, const std::string& value) {
    return ControlError(VarlinkReply{.parameters = {{parameter, value}},
                                     .error = std::string(kServiceInterface) + '.' + name});
}

CallOutcome GetInfo(const CallContext&) {
    return Json{{"vendor", "Orvane"},
                {"product", "zelk_agent"},
                {"version", ZELKA_VERSION},
                {"url", ""},
                {"interfaces", {kServiceInterface, kControlInterface}}};
}

CallOutcome GetInterfaceDescription(const CallContext& context) {
    const std::string name = context.Text("interface");
    if (name != kControlInterface && name != kServiceInterface) {
        throw ServiceError("InterfaceNotFound", "interface", name);
    }
    return Json{
        {"description", name == kControlInterface ? kControlDescription : kServiceDescription}};
}

CallOutcome Reload(const CallContext& context) {
    wxString problem;
    if (!context.target.Reload(problem)) {
        throw ControlError("Failed", "reason", ZelkaCore::ToUtf8(problem));
    }
    return Json::object();
}

CallOutcome Stop(const CallContext& context) {
    context.RefuseIfHardened();
    wxLogVerbose("Asked to stop over the control socket");
    context.target.Stop();
    return Json::object();
}

struct MethodRow {
    std::string_view interface;
    std::string_view name;
    ControlMethod method;
};

// To add a method, add a row, and its description to docs/com.orvane.zelka.varlink.
constexpr std::array kMethods{
    MethodRow{kServiceInterface, "GetInfo", GetInfo},
    MethodRow{kServiceInterface, "GetInterfaceDescription", GetInterfaceDescription},
    MethodRow{kControlInterface, "GetStatus", GetStatus},
    MethodRow{kControlInterface, "ListTasks", ListTasks},
    MethodRow{kControlInterface, "GetStacks", GetStacks},
    MethodRow{kControlInterface, "ListVariables", ListVariables},
    MethodRow{kControlInterface, "ListSettings", ListSettings},
    MethodRow{kControlInterface, "GetSetting", GetSetting},
    MethodRow{kControlInterface, "StoreSetting", StoreSetting},
    MethodRow{kControlInterface, "RemoveSetting", RemoveSetting},
    MethodRow{kControlInterface, "ListEvents", ListEvents},
    MethodRow{kControlInterface, "GetTrace", GetTrace},
    MethodRow{kControlInterface, "ChangeTrace", ChangeTrace},
    MethodRow{kControlInterface, "Run", Run},
    MethodRow{kControlInterface, "Complete", Complete},
    MethodRow{kControlInterface, "Reload", Reload},
    MethodRow{kControlInterface, "Stop", Stop},
};

ControlMethod FindMethod(const std::string& wanted) {
    const auto dot = std::min(wanted.rfind('.'), wanted.size());
    const std::string_view interface(wanted.data(), dot);
    const auto hasInterface = [&](const MethodRow& row) { return row.interface == interface; };
    if (std::none_of(kMethods.begin(), kMethods.end(), hasInterface)) {
        throw ServiceError("InterfaceNotFound", "interface", std::string(interface));
    }
    const auto* const found =
        std::find_if(kMethods.begin(), kMethods.end(), [&](const MethodRow& row) {
            return hasInterface(row) && wanted.compare(dot + 1, std::string::npos, row.name) == 0;
        });
    if (found == kMethods.end()) {
        throw ServiceError("MethodNotFound", "method", wanted);
    }
    return found->method;
}

// The parameter, if it is given; of the type, or it is an error.
const Json* FindParameter(const CallContext& context, const char* name,
                          bool (Json::*isRight)() const noexcept) {
    const auto found = context.parameters.find(name);
    if (found == context.parameters.end() || found->is_null()) {
        return nullptr;
    }
    if (!((*found).*isRight)()) {
        throw ServiceError("InvalidParameter", "parameter", name);
    }
    return &*found;
}

}  // namespace

std::string CallContext::Text(const char* name) const {
    auto text = OptionalText(name);
    if (!text) {
        throw ServiceError("InvalidParameter", "parameter", name);
    }
    return std::move(*text);
}

std::optional<std::string> CallContext::OptionalText(const char* name) const {
    const Json* value = FindParameter(*this, name, &Json::is_string);
    return value != nullptr ? std::optional(value->get<std::string>()) : std::nullopt;
}

bool CallContext::Flag(const char* name) const {
    const Json* value = FindParameter(*this, name, &Json::is_boolean);
    return value != nullptr && value->get<bool>();
}

std::optional<std::int64_t> CallContext::OptionalInteger(const char* name) const {
    const Json* value = FindParameter(*this, name, &Json::is_number_integer);
    return value != nullptr ? std::optional(value->get<std::int64_t>()) : std::nullopt;
}

std::vector<std::string> CallContext::Texts(const char* name) const {
    std::vector<std::string> texts;
    if (const Json* value = FindParameter(*this, name, &Json::is_array)) {
        texts.reserve(value->size());
        for (const Json& item : *value) {
            if (!item.is_string()) {
                throw ServiceError("InvalidParameter", "parameter", name);
            }
            texts.push_back(item.get<std::string>());
        }
    }
    return texts;
}

void CallContext::RefuseIfHardened() const {
    if (target.IsHardened()) {
        throw ControlError("Hardened", "reason",
                           "the service is hardened: it only lets itself be looked at");
    }
}

ZelkaCore::CLuaInterpreter& CallContext::Interpreter() const {
    ZelkaCore::CLuaInterpreter* lua = target.Interpreter();
    if (lua == nullptr) {
        throw ControlError("NotRunning", "reason", "there is no Lua interpreter yet");
    }
    return *lua;
}

std::variant<VarlinkReply, std::unique_ptr<OngoingCall>> CarryOut(
    const VarlinkCall& call, ControlTarget& target, const std::function<void()>& wake) {
    try {
        CallOutcome outcome =
            FindMethod(call.method)({target, call.parameters, call.wantsMore, wake});
        if (auto* parameters = std::get_if<Json>(&outcome)) {
            return VarlinkReply{.parameters = std::move(*parameters)};
        }
        return std::move(std::get<std::unique_ptr<OngoingCall>>(outcome));
    } catch (const ControlError& error) {
        return error.Reply();
    } catch (const std::exception& error) {
        return ControlError("Failed", "reason", error.what()).Reply();
    }
}
