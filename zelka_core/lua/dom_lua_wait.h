#pragma once

#include <lua.hpp>

namespace ZelkaCore {

class CSignal;

// The member of `dom` by which scripts wait. In a task it suspends that task; elsewhere the tasks
// run meanwhile.
int Wait(lua_State* L);

// Makes a signal, which scripts can wait for as well, in a new userdata on top of the stack. May
// raise a Lua error.
CSignal& MakeSignal(lua_State* L);

// The signal that stands there; null if it is something else.
CSignal* SignalAt(lua_State* L, int index);

}  // namespace ZelkaCore
