#include "zelka_core/lua/dom_lua_records.h"

#include <limits>
#include <optional>

#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/store/agent_database.h"
#include "zelka_core/system/clocks.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

// Calls `work`, which does not touch Lua, with the state given back.
template <class Work>
auto WithoutLua(lua_State* L, const Work& work) {
    std::optional<CLuaStateLock::GiveBack> giveBack;
    if (CLuaInterpreter* interpreter = CLuaInterpreter::Of(L)) {
        giveBack.emplace(interpreter->Lock(), L);
    }
    return work();
}

int CheckInt(const DomCall& call, int index, const char* argument) {
    const std::int64_t number = call.Integer(index, argument);
    if (number < std::numeric_limits<int>::min() || number > std::numeric_limits<int>::max()) {
        call.Raise(argument, "must be an integer of 32 bits");
    }
    return static_cast<int>(number);
}

// A log level's number, or a severity's name.
CAgentEvent::_EventSeverity CheckSeverity(const DomCall& call, int index) {
    if (lua_type(call.L, index) == LUA_TSTRING) {
        if (const auto severity = CAgentEvent::SeverityFromName(call.Text(index, "severity"))) {
            return *severity;
        }
    } else if (const int level = CheckInt(call, index, "severity"); level >= 0) {
        return CAgentEvent::ToSeverity(static_cast<unsigned long>(level));
    }
    call.Raise("severity",
               "must be 'fatal', 'error', 'warning', 'notice', 'info', 'debug' or a level of 0 or "
               "more");
}

CAgentEvent CheckEvent(const DomCall& call, int index) {
    lua_State* L = call.L;
    if (!lua_istable(L, index)) {
        call.RaiseType(index, "event", "a table");
    }
    CAgentEvent event;
    lua_getfield(L, index, "code");
    event.SetEventCode(CheckInt(call, lua_gettop(L), "code"));
    lua_getfield(L, index, "severity");
    event.SetSeverity(CheckSeverity(call, lua_gettop(L)));
    lua_getfield(L, index, "data");
    if (call.IsGiven(-1)) {
        const std::string data = call.Text(lua_gettop(L), "data");
        if (!IsValidUtf8(data)) {
            call.Raise("data", "must be UTF-8");
        }
        event.SetData(FromUtf8(data));
    }
    lua_pop(L, 3);
    event.SetJTime(TimeNowMillis());
    event.SetTime(static_cast<int>(event.GetJTime() / 1000));
    return event;
}

void SetNumber(lua_State* L, const char* field, std::int64_t number) {
    lua_pushnumber(L, static_cast<double>(number));
    lua_setfield(L, -2, field);
}

void PushEvent(lua_State* L, const StoredAgentEvent& stored) {
    lua_createtable(L, 0, 6);
    SetNumber(L, "id", stored.id);
    SetNumber(L, "code", stored.event.GetEventCode());
    SetNumber(L, "severity", stored.event.GetSeverity());
    SetNumber(L, "jtime", stored.event.GetJTime());
    SetNumber(L, "time", stored.event.GetTime());
    PushText(L, ToUtf8(stored.event.GetData()));
    lua_setfield(L, -2, "data");
}

}  // namespace

int SettingStore(const DomCall& call) {
    const std::string name = call.Name(2);
    const std::string value = call.Text(3, "value");
    const bool isStored = WithoutLua(call.L, [&] { return call.dom.SettingStore(name, value); });
    lua_pushboolean(call.L, isStored);
    return 1;
}

int SettingRetrieve(const DomCall& call) {
    const std::string name = call.Name(2);
    std::string value;
    if (WithoutLua(call.L, [&] { return call.dom.SettingRetrieve(name, value); })) {
        PushText(call.L, value);
    } else {
        lua_pushnil(call.L);
    }
    return 1;
}

int SettingRemove(const DomCall& call) {
    const std::string name = call.Name(2);
    lua_pushboolean(call.L, WithoutLua(call.L, [&] { return call.dom.SettingRemove(name); }));
    return 1;
}

int AgentEventWrite(const DomCall& call) {
    const CAgentEvent event = CheckEvent(call, 2);
    lua_pushboolean(call.L, WithoutLua(call.L, [&] { return call.dom.TryAgentEventWrite(event); }));
    return 1;
}

int AgentEvents(const DomCall& call) {
    lua_State* L = call.L;
    const std::int64_t after = call.IsGiven(2) ? call.Integer(2, "after_id") : 0;
    const std::int64_t limit = call.IsGiven(3) ? call.Integer(3, "limit") : AgentDatabase::kNoLimit;
    std::vector<StoredAgentEvent> events;
    if (!WithoutLua(L, [&] { return call.dom.AgentEvents(after, limit, events); })) {
        lua_pushnil(L);
        return 1;
    }
    lua_createtable(L, static_cast<int>(events.size()), 0);
    int index = 0;
    for (const StoredAgentEvent& event : events) {
        PushEvent(L, event);
        lua_rawseti(L, -2, ++index);
    }
    return 1;
}

}  // namespace ZelkaCore
