#pragma once

#include <cstddef>

namespace ZelkaCore {

class CLuaInterpreter;

// Has DescribeLua tell of this interpreter from now on; to be taken back with null before it is
// destroyed. For the thread that holds its lock. May raise a Lua error.
void ShowInCrashDumps(CLuaInterpreter* interpreter);

// What runs in the interpreter that is to be shown: a line that says whether Lua runs on the
// calling thread and in which task, then the levels of the running Lua thread, of the one that has
// resumed it, and so on to the main one. Nothing if there is no interpreter. A CrashDescription
// (platform/crash.h).
//
// The levels are asked for with Lua's public functions. Those promise nothing for a signal handler,
// but in this version lua_getstack and lua_getinfo with "Slnt" only read: they allocate no memory,
// take no lock and call no code of a script. What they may meet is a state that is half changed,
// for which the caller is prepared; each of their loops ends at a bound or at such memory. To
// follow the structures without them would mean a copy of their layout, which no header promises.
std::size_t DescribeLua(char* buffer, std::size_t size);

}  // namespace ZelkaCore
