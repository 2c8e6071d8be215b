#include "zelka_core/lua/dom_lua_records.h"

#include <limits>
#include <optional>

#include "zelka_core/lua/lua_arguments.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/system/clocks.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

// Calls `work`, which does not touch Lua, with the state given back.
template <class Work>
auto WithoutLua(lua_State* L, const Work& work) {
    std::optional<CLuaStateLock::GiveBack> giveBack;
    if (CLuaInterpreter* interpreter = CLuaInterpreter::Of(L)) {
        giveBack.emplace(interpreter->Lock());
    }
    return work();
}

int CheckInt(lua_State* L, int index, const char* argument) {
    const std::int64_t number = CheckInteger(L, index, "AgentEventWrite", argument);
    if (number < std::numeric_limits<int>::min() || number > std::numeric_limits<int>::max()) {
        RaiseArgument(L, "AgentEventWrite", argument, "must be an integer of 32 bits");
    }
    return static_cast<int>(number);
}

// A log level's number, or a severity's name.
CAgentEvent::_EventSeverity CheckSeverity(lua_State* L, int index) {
    if (lua_type(L, index) == LUA_TSTRING) {
        const auto severity =
            CAgentEvent::SeverityFromName(CheckText(L, index, "AgentEventWrite", "severity"));
        if (severity) {
            return *severity;
        }
    } else if (const int level = CheckInt(L, index, "severity"); level >= 0) {
        return CAgentEvent::ToSeverity(static_cast<unsigned long>(level));
    }
    RaiseArgument(L, "AgentEventWrite", "severity",
                  "must be 'fatal', 'error', 'warning', 'notice', 'info', 'debug' or a level of 0 "
                  "or more");
}

CAgentEvent CheckEvent(lua_State* L, int index) {
    if (!lua_istable(L, index)) {
        RaiseArgument(L, "AgentEventWrite", "event", "must be a table" + ButGot(L, index));
    }
    CAgentEvent event;
    lua_getfield(L, index, "code");
    event.SetEventCode(CheckInt(L, -1, "code"));
    lua_getfield(L, index, "severity");
    event.SetSeverity(CheckSeverity(L, lua_gettop(L)));
    lua_getfield(L, index, "data");
    if (!lua_isnil(L, -1)) {
        const std::string data = CheckText(L, -1, "AgentEventWrite", "data");
        if (!IsValidUtf8(data)) {
            RaiseArgument(L, "AgentEventWrite", "data", "must be UTF-8");
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

int SettingStore(lua_State* L) {
    CDom& dom = CheckDom(L, "SettingStore");
    const std::string name = CheckName(L, 2, "SettingStore");
    const std::string value = CheckText(L, 3, "SettingStore", "value");
    lua_pushboolean(L, WithoutLua(L, [&] { return dom.SettingStore(name, value); }));
    return 1;
}

int SettingRetrieve(lua_State* L) {
    CDom& dom = CheckDom(L, "SettingRetrieve");
    const std::string name = CheckName(L, 2, "SettingRetrieve");
    std::string value;
    if (WithoutLua(L, [&] { return dom.SettingRetrieve(name, value); })) {
        PushText(L, value);
    } else {
        lua_pushnil(L);
    }
    return 1;
}

int SettingRemove(lua_State* L) {
    CDom& dom = CheckDom(L, "SettingRemove");
    const std::string name = CheckName(L, 2, "SettingRemove");
    lua_pushboolean(L, WithoutLua(L, [&] { return dom.SettingRemove(name); }));
    return 1;
}

int AgentEventWrite(lua_State* L) {
    CDom& dom = CheckDom(L, "AgentEventWrite");
    CAgentEvent event = CheckEvent(L, 2);
    lua_pushboolean(L, WithoutLua(L, [&] { return dom.TryAgentEventWrite(event); }));
    return 1;
}

int AgentEvents(lua_State* L) {
    CDom& dom = CheckDom(L, "AgentEvents");
    const std::int64_t after =
        lua_isnoneornil(L, 2) ? 0 : CheckInteger(L, 2, "AgentEvents", "after_id");
    const std::int64_t limit = lua_isnoneornil(L, 3) ? AgentDatabase::kNoLimit
                                                     : CheckInteger(L, 3, "AgentEvents", "limit");
    std::vector<StoredAgentEvent> events;
    if (!WithoutLua(L, [&] { return dom.AgentEvents(after, limit, events); })) {
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
