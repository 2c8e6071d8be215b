#include "zelka_core/lua/dom_lua.h"

#include <cstddef>
#include <system_error>

#include "platform/events.h"
#include "zelka_core/lua/dom_lua_log.h"
#include "zelka_core/lua/dom_lua_records.h"
#include "zelka_core/lua/dom_lua_wait.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/system/clocks.h"
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

// Members. The table at the end gives each its name.

int Get(const DomCall& call) {
    if (const auto value = call.dom.Find(call.Name(2))) {
        PushValue(call.L, *value);
    } else {
        lua_pushnil(call.L);
    }
    return 1;
}

int GetString(const DomCall& call) {
    if (const auto value = call.dom.Find(call.Name(2))) {
        PushText(call.L, ToText(*value));
    } else {
        lua_pushnil(call.L);
    }
    return 1;
}

// Counts what the store is going to hold, as `size` tells it, into the memory limit. Raises an
// error if that is too much even without garbage.
template <class Size>
void Reserve(const DomCall& call, const Size& size) {
    CLuaInterpreter* interpreter = CLuaInterpreter::Of(call.L);
    if (interpreter == nullptr || interpreter->CountOutside(size())) {
        return;
    }
    lua_gc(call.L, LUA_GCCOLLECT, 0);
    if (!interpreter->CountOutside(size())) {
        luaL_error(call.L, "%s: not enough memory", call.Member());
    }
}

int SetNil(const DomCall& call) {
    (void)call.dom.SetNil(call.Name(2));
    if (CLuaInterpreter* interpreter = CLuaInterpreter::Of(call.L)) {
        (void)interpreter->CountOutside(call.dom.Size());
    }
    return 0;
}

void Write(const DomCall& call, const std::string& name, const CDom::Value& value) {
    Reserve(call, [&] { return call.dom.SizeWith(name, value); });
    std::visit([&](const auto& content) { (void)call.dom.Set(name, content); }, value);
}

int Set(const DomCall& call) {
    const std::string name = call.Name(2);
    switch (lua_type(call.L, 3)) {
        case LUA_TNIL:
            return SetNil(call);
        case LUA_TBOOLEAN:
            Write(call, name, lua_toboolean(call.L, 3) != 0);
            break;
        case LUA_TNUMBER:
            Write(call, name, call.Integer(3, "value"));
            break;
        case LUA_TSTRING:
            Write(call, name, call.Text(3, "value"));
            break;
        default:
            call.RaiseType(3, "value", "a string, an integer, a boolean or nil");
    }
    return 0;
}

int Names(const DomCall& call) {
    const auto names = call.dom.Names(call.IsGiven(2) ? call.Text(2, "prefix") : std::string());
    lua_createtable(call.L, static_cast<int>(names.size()), 0);
    int index = 0;
    for (const std::string& name : names) {
        PushText(call.L, name);
        lua_rawseti(call.L, -2, ++index);
    }
    return 1;
}

int ConditionRaise(const DomCall& call) {
    const std::string name = call.Name(2);
    if (const std::size_t more = call.dom.Conditions().SizeOfNew(name)) {
        Reserve(call, [&] { return call.dom.Size() + more; });
    }
    lua_pushunsigned(call.L, call.dom.ConditionRaise(name));
    return 1;
}

int EventSet(const DomCall& call) {
    const auto event = static_cast<HANDLE>(call.Integer(2, "handle"));
    lua_pushboolean(call.L, !SetEvent(event));
    return 1;
}

int StopRequested(const DomCall& call) {
    lua_pushboolean(call.L, call.dom.StopRequested());
    return 1;
}

int GetPluginFile(const DomCall& call) {
    const std::string plugin = call.PlainName(2, "plugin");
    PushText(call.L, call.dom.GetPluginFile(plugin, call.PlainName(3, "file")));
    return 1;
}

int GetPluginWorkdir(const DomCall& call) {
    const wxString plugin = FromUtf8(call.PlainName(2, "plugin"));
    PushText(call.L, ToUtf8(call.dom.GetPluginWorkdirWx(plugin)));
    return 1;
}

int Now(const DomCall& call) {
    lua_pushnumber(call.L, MonotonicMillis());
    return 1;
}

int Time(const DomCall& call) {
    lua_pushnumber(call.L, TimeOfDayMillis());
    return 1;
}

// "dom:" and the name of a member, as an argument of a template.
template <std::size_t N>
struct MemberName {
    consteval MemberName(const char (&name)[N]) {  // NOLINT(google-explicit-constructor)
        std::copy_n("dom:", kObjectLength, text);
        std::copy_n(name, N, text + kObjectLength);
    }
    static constexpr std::size_t kObjectLength = 4;
    char text[kObjectLength + N];
};

// The row of a member: its name as Lua has it, and the function that Lua calls.
struct MemberRow {
    const char* name;
    lua_CFunction function;
};

template <MemberName name, DomMember member>
constexpr MemberRow Row() {
    return {name.text + name.kObjectLength, [](lua_State* L) {
                return CallGuarded(
                    L, [](lua_State* state) { return member(DomCall(state, name.text)); });
            }};
}

constexpr MemberRow kMembers[] = {
    Row<"Get", Get>(),
    Row<"GetString", GetString>(),
    Row<"Set", Set>(),
    Row<"SetNil", SetNil>(),
    Row<"Names", Names>(),
    Row<"ConditionRaise", ConditionRaise>(),
    {"Wait", Wait},
    Row<"EventSet", EventSet>(),
    Row<"StopRequested", StopRequested>(),
    Row<"GetPluginFile", GetPluginFile>(),
    Row<"GetPluginWorkdir", GetPluginWorkdir>(),
    Row<"SettingStore", SettingStore>(),
    Row<"SettingRetrieve", SettingRetrieve>(),
    Row<"SettingRemove", SettingRemove>(),
    Row<"AgentEventWrite", AgentEventWrite>(),
    Row<"AgentEvents", AgentEvents>(),
    Row<"Now", Now>(),
    Row<"Time", Time>(),
    Row<"Log", Log>(),
    Row<"LogTrace", WriteTrace>(),
    Row<"LogTraceIsEnabled", IsTraceEnabled>(),
};

}  // namespace

DomCall::DomCall(lua_State* state, const char* member)
    : LuaCall(state, member),
      dom(*static_cast<CDom*>(SLB3::internal::CheckObject(state, 1, kDomClass, member))) {
}

}  // namespace ZelkaCore

void SLB3::Wrapper<ZelkaCore::CDom>::Register(internal::Class<ZelkaCore::CDom>& definition) {
    for (const auto& [name, function] : ZelkaCore::kMembers) {
        definition.Member(name, function);
    }
}
