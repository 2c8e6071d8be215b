#pragma once

#include <lua.hpp>

#include "platform/bounded_text.h"

namespace ZelkaCore {

// The levels of a Lua thread in words. Nothing here makes Lua values, allocates or locks.

// The level `activation` of the thread, as lua_getstack has filled it in, the way Lua's own
// tracebacks have it: "main.lua:12: in function 'sample'", with `lead` before each line, of which
// there are two behind a tail call. Fills the activation in further.
void AddFrame(const char* lead, lua_State* thread, lua_Debug& activation, BoundedText& text);

// How many levels the thread has, from `from` on, which has to be one of them or the first beyond.
int CountFrames(lua_State* thread, int from);

}  // namespace ZelkaCore
