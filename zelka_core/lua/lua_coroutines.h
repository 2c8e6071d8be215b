#pragma once

#include <lua.hpp>

namespace ZelkaCore {

// Puts the host's coroutine.create, coroutine.wrap and coroutine.resume in the place of Lua's own.
// They behave as ever, and more: dumps know the Lua threads that they make, and a wait of the host
// inside a coroutine of a task goes outwards through them, so that the task gives way, and comes
// back to where it was. May raise a Lua error.
void PatchCoroutines(lua_State* L);

// Pushes the table whose keys are the Lua threads that scripts have made and that still exist.
void PushThreads(lua_State* L);

}  // namespace ZelkaCore
