#include "zelka_core/lua/dom_lua.h"

#include <wx/log.h>

#include <algorithm>
#include <cctype>
#include <cerrno>

#include "zelka_core/log/trace.h"
#include "zelka_core/lua/dom_lua_records.h"
#include "zelka_core/lua/lua_arguments.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

void PushValue(lua_State* L, const CDom::Value& value) {
    if (const auto* text = std::get_if<std::string>(&value)) {
        PushText(L, *text);
    } else if (const auto* number = std::get_if<std::int64_t>(&value)) {
        lua_pushnumber(L, static_cast<double>(*number));
    } else {
        lua_pushboolean(L, std::get<bool>(value));
    }
}

// Members.

int Get(lua_State* L) {
    const auto value = CheckDom(L, "Get").Find(CheckName(L, 2, "Get"));
    if (value) {
        PushValue(L, *value);
    } else {
        lua_pushnil(L);
    }
    return 1;
}

int GetString(lua_State* L) {
    const auto value = CheckDom(L, "GetString").Find(CheckName(L, 2, "GetString"));
    if (value) {
        PushText(L, ToText(*value));
    } else {
        lua_pushnil(L);
    }
    return 1;
}

int Set(lua_State* L) {
    CDom& dom = CheckDom(L, "Set");
    const std::string name = CheckName(L, 2, "Set");
    switch (lua_type(L, 3)) {
        case LUA_TNIL:
            (void)dom.SetNil(name);
            break;
        case LUA_TBOOLEAN:
            (void)dom.Set(name, lua_toboolean(L, 3) != 0);
            break;
        case LUA_TNUMBER:
            (void)dom.Set(name, CheckInteger(L, 3, "Set", "value"));
            break;
        case LUA_TSTRING:
            (void)dom.Set(name, CheckText(L, 3, "Set", "value"));
            break;
        default:
            RaiseArgument(L, "Set", "value",
                          "must be a string, an integer, a boolean or nil" + ButGot(L, 3));
    }
    return 0;
}

int SetNil(lua_State* L) {
    (void)CheckDom(L, "SetNil").SetNil(CheckName(L, 2, "SetNil"));
    return 0;
}

int Names(lua_State* L) {
    const CDom& dom = CheckDom(L, "Names");
    const std::string prefix =
        lua_isnoneornil(L, 2) ? std::string() : CheckText(L, 2, "Names", "prefix");
    const auto names = dom.Names(prefix);
    lua_createtable(L, static_cast<int>(names.size()), 0);
    int index = 0;
    for (const std::string& name : names) {
        PushText(L, name);
        lua_rawseti(L, -2, ++index);
    }
    return 1;
}

int ConditionRaise(lua_State* L) {
    CDom& dom = CheckDom(L, "ConditionRaise");
    lua_pushunsigned(L, dom.ConditionRaise(CheckName(L, 2, "ConditionRaise")));
    return 1;
}

DWORD CheckTimeout(lua_State* L) {
    const std::int64_t timeout = CheckInteger(L, 2, "Wait", "timeout_ms");
    if (timeout < -1) {
        RaiseArgument(L, "Wait", "timeout_ms", "must be -1 (no limit), 0 or more milliseconds");
    }
    return timeout == -1 ? INFINITE
                         : static_cast<DWORD>(std::min<std::int64_t>(timeout, INFINITE - 1));
}

// Conditions and event handles from argument 3 on.
std::vector<CConditionObserver::Item> CheckWaitItems(lua_State* L) {
    std::vector<CConditionObserver::Item> items;
    std::size_t handles = 0;
    for (int i = 3; i <= lua_gettop(L); ++i) {
        if (lua_type(L, i) == LUA_TNUMBER) {
            items.emplace_back(static_cast<HANDLE>(CheckInteger(L, i, "Wait", "handle")));
            ++handles;
        } else if (lua_type(L, i) == LUA_TSTRING) {
            items.emplace_back(CheckName(L, i, "Wait", "condition"));
        } else {
            RaiseArgument(L, "Wait", std::to_string(i - 1).c_str(),
                          "must be a condition's name or an event handle" + ButGot(L, i));
        }
    }
    if (handles >= MAXIMUM_WAIT_OBJECTS) {
        RaiseArgument(L, "Wait", "handle", "stands there too often: at most 63 events at a time");
    }
    return items;
}

int Wait(lua_State* L) {
    CDom& dom = CheckDom(L, "Wait");
    CLuaInterpreter* interpreter = CLuaInterpreter::Of(L);
    if (interpreter == nullptr) {
        return luaL_error(L, "dom:Wait: this Lua state does not belong to the agent");
    }
    const DWORD timeout = interpreter->IsClosing() ? 0 : CheckTimeout(L);
    const auto items = CheckWaitItems(L);
    CConditionObserver& observer = interpreter->Observer(dom.Conditions());
    const auto result = [&] {
        const CLuaStateLock::GiveBack giveBack(interpreter->Lock());
        return observer.Wait(items, timeout);
    }();
    switch (result.kind) {
        case CConditionObserver::Result::Kind::kFired:
            lua_pushvalue(L, static_cast<int>(result.index) + 3);
            return 1;
        case CConditionObserver::Result::Kind::kTimeout:
            lua_pushnil(L);
            return 1;
        case CConditionObserver::Result::Kind::kFailed:
            break;
    }
    return luaL_error(L,
                      result.error == EBADF
                          ? "dom:Wait: one of the handles is not that of an open event"
                          : "dom:Wait: the system refused to wait (error %d)",
                      static_cast<int>(result.error));
}

int EventSet(lua_State* L) {
    (void)CheckDom(L, "EventSet");
    lua_pushboolean(L, SetEvent(static_cast<HANDLE>(CheckInteger(L, 2, "EventSet", "handle"))));
    return 1;
}

int GetPluginFile(lua_State* L) {
    const CDom& dom = CheckDom(L, "GetPluginFile");
    const std::string plugin = CheckPlainName(L, 2, "GetPluginFile", "plugin");
    PushText(L, dom.GetPluginFile(plugin, CheckPlainName(L, 3, "GetPluginFile", "file")));
    return 1;
}

int GetPluginWorkdir(lua_State* L) {
    const CDom& dom = CheckDom(L, "GetPluginWorkdir");
    const std::string plugin = CheckPlainName(L, 2, "GetPluginWorkdir", "plugin");
    PushText(L, ToUtf8(dom.GetPluginWorkdirWx(FromUtf8(plugin))));
    return 1;
}

// The framework's log functions would end the text at a null.
wxString CheckLogText(lua_State* L, int index, const char* member) {
    std::string text = CheckText(L, index, member, "text");
    std::replace(text.begin(), text.end(), '\0', '?');
    return FromUtf8(text);
}

int Log(lua_State* L) {
    (void)CheckDom(L, "Log");
    const std::string level = CheckName(L, 2, "Log", "level");
    const wxString text = CheckLogText(L, 3, "Log");
    if (level == "error") {
        wxLogError("%s", text);
    } else if (level == "warning") {
        wxLogWarning("%s", text);
    } else if (level == "verbose") {
        wxLogVerbose("%s", text);
    } else {
        RaiseArgument(L, "Log", "level",
                      "must be 'error', 'warning' or 'verbose', but it is '" + level + "'");
    }
    return 0;
}

int LogTraceMember(lua_State* L) {
    (void)CheckDom(L, "LogTrace");
    const wxString module = FromUtf8(CheckName(L, 2, "LogTrace", "module"));
    const wxString text = CheckLogText(L, 3, "LogTrace");
    if (!LogTraceIsEnabled(module)) {
        return 0;
    }
    lua_Debug caller = {};
    if (lua_getstack(L, 1, &caller)) {
        lua_getinfo(L, "nSl", &caller);
    }
    LogTrace(module, caller.short_src, caller.currentline,
             caller.name != nullptr ? caller.name : "chunk", text);
    return 0;
}

int LogTraceIsEnabledMember(lua_State* L) {
    (void)CheckDom(L, "LogTraceIsEnabled");
    const std::string module = CheckName(L, 2, "LogTraceIsEnabled", "module");
    lua_pushboolean(L, LogTraceIsEnabled(FromUtf8(module)));
    return 1;
}

}  // namespace

bool IsSecretName(const std::string& name) {
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower.find("password") != std::string::npos ||
           lower.find("secret") != std::string::npos || lower.find("token") != std::string::npos;
}

}  // namespace ZelkaCore

void SLB3::Wrapper<ZelkaCore::CDom>::Register(internal::Class<ZelkaCore::CDom>& definition) {
    using namespace ZelkaCore;
    definition.Member("Get", Guarded<Get>)
        .Member("GetString", Guarded<GetString>)
        .Member("Set", Guarded<Set>)
        .Member("SetNil", Guarded<SetNil>)
        .Member("Names", Guarded<Names>)
        .Member("ConditionRaise", Guarded<ConditionRaise>)
        .Member("Wait", Guarded<Wait>)
        .Member("EventSet", Guarded<EventSet>)
        .Member("GetPluginFile", Guarded<GetPluginFile>)
        .Member("GetPluginWorkdir", Guarded<GetPluginWorkdir>)
        .Member("SettingStore", Guarded<SettingStore>)
        .Member("SettingRetrieve", Guarded<SettingRetrieve>)
        .Member("SettingRemove", Guarded<SettingRemove>)
        .Member("AgentEventWrite", Guarded<AgentEventWrite>)
        .Member("AgentEvents", Guarded<AgentEvents>)
        .Member("Log", Guarded<Log>)
        .Member("LogTrace", Guarded<LogTraceMember>)
        .Member("LogTraceIsEnabled", Guarded<LogTraceIsEnabledMember>);
}
