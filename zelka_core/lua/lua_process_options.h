#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/running_program.h"
#include "zelka_core/lua/lua_arguments.h"

namespace ZelkaCore {

// What process.run is told.
struct ProcessOptions {
    ProgramStart start;
    std::optional<std::string> folder;
    std::optional<std::int64_t> timeout;  // milliseconds
};

// Takes the options from the table at an index, whatever its metatable says. Raises the error for
// what is wrong, missing or unknown.
ProcessOptions CheckProcessOptions(const LuaCall& call, int index);

}  // namespace ZelkaCore
