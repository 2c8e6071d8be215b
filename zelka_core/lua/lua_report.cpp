#include "zelka_core/lua/lua_report.h"

#include <array>
#include <cstdio>

#include "zelka_core/lua/lua_coroutines.h"
#include "zelka_core/lua/lua_frame.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/task_scheduler.h"
#include "zelka_core/secret_name.h"

namespace ZelkaCore {

namespace {

// A report makes no Lua strings where it can help it: the collector rests meanwhile.

constexpr int kOwnLevels = 1;        // of the function that reports, on its own Lua thread
constexpr int kFramesShown = 40;     // of a thread, when locals are listed
constexpr int kInnermostShown = 12;  // of a traceback, and the outermost
constexpr int kOutermostShown = 10;
constexpr std::size_t kValueShown = 120;  // bytes of a local's value

// What the thread is about: coroutine.status without the coroutine, and whether it waits.
const char* StatusOf(lua_State* L, lua_State* thread) {
    CLuaInterpreter* interpreter = CLuaInterpreter::Of(L);
    lua_State* waiting = interpreter != nullptr ? interpreter->Lock().Waiting() : nullptr;
    if (thread == waiting) {
        return "waiting";
    }
    const CTaskScheduler* scheduler =
        interpreter != nullptr ? interpreter->SchedulerIfAny() : nullptr;
    if (scheduler != nullptr && thread != L &&
        (thread == scheduler->Outside() || scheduler->IsParked(L, thread))) {
        return "waiting";
    }
    lua_Debug frame;
    if (thread == L && waiting == nullptr) {
        return lua_getstack(L, kOwnLevels, &frame) ? "running" : "idle";
    }
    if (lua_status(thread) == LUA_YIELD) {
        return "suspended";
    }
    if (lua_status(thread) == LUA_OK && lua_getstack(thread, 0, &frame)) {
        return "normal";
    }
    return lua_status(thread) == LUA_OK && lua_gettop(thread) > 0 ? "not started" : "dead";
}

// Where a level of a traceback is, as Lua's own tracebacks have it.
std::string ShowFrame(lua_State* thread, lua_Debug& frame) {
    std::array<char, 512> room{};
    BoundedText text(room.data(), room.size());
    AddFrame("\n\t", thread, frame, text);
    return std::string(text.View());
}

}  // namespace

std::string PlaceOf(lua_State* thread) {
    lua_Debug frame;
    for (int level = 0; lua_getstack(thread, level, &frame); ++level) {
        lua_getinfo(thread, "Sl", &frame);
        if (frame.currentline > 0) {
            return std::string(frame.short_src) + ":" + std::to_string(frame.currentline);
        }
    }
    return "outside Lua code";
}

std::string ShowTraceback(lua_State* thread, int level) {
    std::string text = "stack traceback:";
    const int frames = CountFrames(thread, level);
    const int skipFrom = level + kInnermostShown;
    const int skipTo = frames - kOutermostShown;
    lua_Debug frame;
    for (; lua_getstack(thread, level, &frame); ++level) {
        if (level == skipFrom && skipTo > skipFrom) {
            text += "\n\t...";
            level = skipTo - 1;
        } else {
            text += ShowFrame(thread, frame);
        }
    }
    return text;
}

namespace {

// What tostring would say, without calling into a script's metamethods, cut to a line.
std::string ShowValue(lua_State* L, int index) {
    switch (lua_type(L, index)) {
        case LUA_TNIL:
            return "nil";
        case LUA_TBOOLEAN:
            return lua_toboolean(L, index) ? "true" : "false";
        case LUA_TNUMBER: {
            char text[LUAI_MAXNUMBER2STR];
            (void)std::snprintf(text, sizeof text, LUA_NUMBER_FMT, lua_tonumber(L, index));
            return text;
        }
        case LUA_TSTRING: {
            std::size_t size = 0;
            const char* text = lua_tolstring(L, index, &size);
            const bool cut = size > kValueShown;
            return '"' + std::string(text, cut ? kValueShown : size) + (cut ? "\"..." : "\"");
        }
        default:
            return wxString::Format("%s: %p", wxString::FromUTF8(luaL_typename(L, index)),
                                    lua_topointer(L, index))
                .utf8_string();
    }
}

std::string ShowLocals(lua_State* thread) {
    std::string text = "locals:";
    lua_Debug frame;
    for (int level = 0; level < kFramesShown && lua_getstack(thread, level, &frame); ++level) {
        lua_getinfo(thread, "Sl", &frame);
        for (int i = 1; const char* name = lua_getlocal(thread, &frame, i); ++i) {
            if (name[0] != '(') {  // temporaries of the virtual machine
                text += "\n\t" + std::string(frame.short_src) + ":" +
                        std::to_string(frame.currentline) + ": " + name + " = " +
                        (IsSecretName(name) ? "***" : ShowValue(thread, -1));
            }
            lua_pop(thread, 1);
        }
    }
    return text;
}

LuaStackReport ReportStack(lua_State* L, lua_State* thread, const LuaReportOptions& options) {
    LuaStackReport stack;
    if (options.tracebacks) {
        stack.traceback = ShowTraceback(thread, thread == L ? kOwnLevels : 0);
    }
    if (options.locals) {
        stack.locals = ShowLocals(thread);
    }
    return stack;
}

void ReportThread(lua_State* L, lua_State* thread, const std::string& name,
                  const LuaReportOptions& options, const TakeLuaReport& take) {
    if (thread == nullptr || !lua_checkstack(thread, 1)) {
        return;
    }
    take({.name = name,
          .isTask = false,
          .state = StatusOf(L, thread),
          .waitsFor = {},
          .since = std::nullopt,
          .place = PlaceOf(thread),
          .stacks = {ReportStack(L, thread, options)}});
}

// A task with the coroutines inside it that wait.
void ReportTask(lua_State* L, const Task& task, const LuaReportOptions& options,
                const TakeLuaReport& take) {
    lua_State* const innermost = task.parked.empty() ? task.thread : task.parked.front();
    if (!lua_checkstack(task.thread, 1) || !lua_checkstack(innermost, 1)) {
        return;
    }
    LuaThreadReport report;
    report.name = task.name;
    report.isTask = true;
    report.state = NameOf(task.status);
    if (task.status == Task::Status::kWaiting) {
        report.waitsFor = task.result ? "its turn" : Describe(task);
    }
    report.since =
        std::chrono::duration_cast<std::chrono::milliseconds>(Task::Clock::now() - task.since);
    report.place = PlaceOf(innermost);
    report.stacks.reserve(task.parked.size() + 1);
    for (lua_State* thread : task.parked) {
        report.stacks.push_back(ReportStack(L, thread, options));
    }
    report.stacks.push_back(ReportStack(L, task.thread, options));
    take(report);
}

}  // namespace

void ReportLuaThread(lua_State* L, lua_State* thread, const LuaReportOptions& options,
                     const TakeLuaReport& take) {
    ReportThread(L, thread, "asked for", options, take);
}

void ReportTasks(lua_State* L, const LuaReportOptions& options, const TakeLuaReport& take) {
    CTaskScheduler::PushTasks(L);
    for (lua_pushnil(L); lua_next(L, -2) != 0; lua_pop(L, 1)) {
        if (const Task* task = Task::At(L, -1)) {
            ReportTask(L, *task, options, take);
        }
    }
    lua_pop(L, 1);
}

void ReportLuaThreads(lua_State* L, const LuaReportOptions& options, const TakeLuaReport& take) {
    lua_rawgeti(L, LUA_REGISTRYINDEX, LUA_RIDX_MAINTHREAD);
    ReportThread(L, lua_tothread(L, -1), "main", options, take);
    lua_pop(L, 1);
    PushThreads(L);
    lua_pushnil(L);
    while (lua_next(L, -2)) {
        lua_State* thread = lua_tothread(L, -2);  // null if a script has put something else there
        char name[32];
        (void)std::snprintf(name, sizeof name, "%p", static_cast<void*>(thread));
        ReportThread(L, thread, name, options, take);
        lua_pop(L, 1);
    }
    lua_pop(L, 1);
}

}  // namespace ZelkaCore
