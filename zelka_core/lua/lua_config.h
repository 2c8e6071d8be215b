#pragma once

#include <lua.hpp>

namespace ZelkaCore {

// Gives scripts the module "config.core", on which the module "config" stands. Its one function
// `entries(own, global, group)` takes the paths of the two ini files and returns a list of tables
// with `name`, `value` (may be absent), `file` and `line`, see ini_files.h; a file that it cannot
// read is an error that begins with the file's name. May raise a Lua error.
void PreloadConfig(lua_State* L);

}  // namespace ZelkaCore
