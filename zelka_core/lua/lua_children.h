#pragma once

#include <lua.hpp>

namespace ZelkaCore {

// Puts `os.execute` and `io.popen` into a state with open libraries that behave as ever, but whose
// commands inherit neither blocked signals nor descriptors of the host. May raise a Lua error.
void PatchChildren(lua_State* L);

}  // namespace ZelkaCore
