#pragma once

#include <lua.hpp>

// The members of `dom` for what outlives the process: settings and agent events. The Lua state is
// given back while the database works.

namespace ZelkaCore {

int SettingStore(lua_State* L);
int SettingRetrieve(lua_State* L);
int SettingRemove(lua_State* L);
int AgentEventWrite(lua_State* L);
int AgentEvents(lua_State* L);

}  // namespace ZelkaCore
