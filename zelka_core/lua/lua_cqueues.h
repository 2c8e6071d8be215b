#pragma once

#include <lua.hpp>
#include <optional>
#include <vector>

#include "zelka_core/store/wait.h"

namespace ZelkaCore {

// What the Lua module `task.cqueues` stands on. A controller of cqueues resumes its coroutines by
// itself, so in one of them a task cannot give way: the coroutine yields to its controller, as
// cqueues has it, and waits for a descriptor that becomes readable when the wait is to be looked
// at.

// Makes `require "task.cqueues.core"` known in a state. For the functions below its scheduler has
// to exist. May raise a Lua error, as they may.
void PreloadCqueues(lua_State* L);

// Whether a controller has resumed, directly or not, the Lua thread that runs. False as long as
// nobody has required task.cqueues.
bool IsInController(lua_State* L);

// Begins a wait of such a thread. Its state takes the place of the function's first argument.
void BeginInController(lua_State* L, std::vector<Awaited> items, const Deadline& deadline);

// Goes back to the controller until the wait may be over, to go on in `continuation`, which asks
// for the result. In a place that cannot be left the wait blocks all tasks. Nothing in the frame of
// the caller may have to be destroyed.
int PollInController(lua_State* L, lua_CFunction continuation);

// What the wait has come to; nothing if it goes on. It is over with an error, too.
std::optional<WaitResult> ResultInController(lua_State* L);

}  // namespace ZelkaCore
