#pragma once

#include <chrono>
#include <functional>
#include <lua.hpp>
#include <optional>
#include <string>
#include <vector>

namespace ZelkaCore {

// What Lua threads are about. The functions run in work of another thread (lua_state_lock.h) as
// well: they call nothing in the state, and make Lua values only where it says so.

// The innermost place in Lua code where the thread is.
std::string PlaceOf(lua_State* thread);

// A traceback from that level on, of a length that can be read.
std::string ShowTraceback(lua_State* thread, int level);

struct LuaReportOptions {
    bool locals = false;
    bool tracebacks = false;
};

struct LuaStackReport {
    std::string traceback;  // empty if it was not asked for, as `locals`
    std::string locals;
};

struct LuaThreadReport {
    std::string name;
    bool isTask = false;
    std::string state;                               // in a word: "waiting"
    std::string waitsFor;                            // of a task, in words; empty if it does not
    std::optional<std::chrono::milliseconds> since;  // of a task: for how long that is so
    std::string place;
    std::vector<LuaStackReport> stacks;  // those of coroutines inside it first
};

using TakeLuaReport = std::function<void(const LuaThreadReport& report)>;

// Report one Lua thread, all that are no tasks, and all tasks that have not ended. They run in a C
// function that Lua has called in `L`, whose level is left out. They may raise a Lua error if there
// is no memory.
void ReportLuaThread(lua_State* L, lua_State* thread, const LuaReportOptions& options,
                     const TakeLuaReport& take);
void ReportLuaThreads(lua_State* L, const LuaReportOptions& options, const TakeLuaReport& take);
void ReportTasks(lua_State* L, const LuaReportOptions& options, const TakeLuaReport& take);

}  // namespace ZelkaCore
