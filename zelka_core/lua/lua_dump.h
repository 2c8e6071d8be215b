#pragma once

#include <lua.hpp>
#include <string>

namespace ZelkaCore {

// What Lua threads are about, in words. They call nothing in the state and make no Lua values, so
// that they are safe in work of another thread (lua_state_lock.h).

// The innermost place in Lua code where the thread is.
std::string PlaceOf(lua_State* thread);

// A traceback from that level on, of a length that can be read.
std::string ShowTraceback(lua_State* thread, int level);

}  // namespace ZelkaCore
