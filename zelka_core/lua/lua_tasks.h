#pragma once

#include <lua.hpp>

namespace ZelkaCore {

class CDom;

// Puts the module `task.core` into `package.preload` of a state of CLuaInterpreter: what the Lua
// modules that come with the host are made of. `dom` has to outlive the state. May raise a Lua
// error, or throw std::system_error.
void PreloadTasks(lua_State* L, CDom& dom);

}  // namespace ZelkaCore
