#pragma once

#include <lua.hpp>

// How a busy script looks for work of other threads: in a hook of Lua's, every so many instructions
// of the virtual machine. A Lua thread has one hook only, and scripts (debug.sethook) and C modules
// (lua_sethook, also from a signal handler) set theirs. Both live side by side: this library
// defines lua_sethook, lua_gethook, lua_gethookmask and lua_gethookcount in the place of Lua's own,
// for the program, its C modules and Lua's debug library alike. In a state of CLuaInterpreter the
// host's hook is never away, calls the one that was set, and shows nowhere. Other states get what
// Lua does.
//
// Why it is done from inside and not by the thread that has the work: that thread cannot know which
// Lua thread runs, and to touch one that runs, or was collected meanwhile, is a race.

namespace ZelkaCore {

// Puts the host's hook into a new state of CLuaInterpreter. Lua threads inherit it.
void InstallLookHook(lua_State* L);

// Has the Lua thread look for work at each instruction from now on, which makes it slow.
void LookAtEachInstruction(lua_State* L);

}  // namespace ZelkaCore
