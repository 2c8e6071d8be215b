#include <wx/log.h>

#include <chrono>
#include <cstdio>
#include <lua.hpp>
#include <string>

#include "zelka_core/log/log_text.h"
#include "zelka_core/lua/dom_lua.h"
#include "zelka_core/lua/lua_coroutines.h"
#include "zelka_core/lua/lua_dump.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/task_scheduler.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

// A dump makes no Lua strings where it can help it: the collector rests meanwhile.

constexpr int kFramesShown = 40;     // of a thread, when locals are listed
constexpr int kInnermostShown = 12;  // of a traceback, and the outermost
constexpr int kOutermostShown = 10;
constexpr std::size_t kValueShown = 120;  // bytes of a local's value

struct DumpOptions {
    bool locals;
    bool tracebacks;
    bool variables;
};

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
        return lua_getstack(L, 1, &frame) ? "running" : "idle";  // level 0 is the dump itself
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
    lua_getinfo(thread, "Slnt", &frame);
    std::string text = std::string("\n\t") + frame.short_src + ":";
    if (frame.currentline > 0) {
        text += std::to_string(frame.currentline) + ":";
    }
    text += " in ";
    if (*frame.namewhat != '\0') {
        text += std::string("function '") + frame.name + "'";
    } else if (*frame.what == 'm') {
        text += "main chunk";
    } else if (*frame.what == 'C') {
        text += "?";
    } else {
        text += std::string("function <") + frame.short_src + ":" +
                std::to_string(frame.linedefined) + ">";
    }
    return text + (frame.istailcall ? "\n\t(...tail calls...)" : "");
}

int CountFrames(lua_State* thread, int from) {
    lua_Debug frame;
    int beyond = from + 1;
    while (lua_getstack(thread, beyond, &frame)) {
        from = beyond;
        beyond *= 2;
    }
    while (from < beyond) {
        const int middle = from + (beyond - from) / 2;
        if (lua_getstack(thread, middle, &frame)) {
            from = middle + 1;
        } else {
            beyond = middle;
        }
    }
    return from;
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

std::string ShowStack(lua_State* L, lua_State* thread, const DumpOptions& options) {
    std::string text;
    if (options.tracebacks) {
        text += "\n" + ShowTraceback(thread, thread == L ? 1 : 0);  // not the dump itself
    }
    if (options.locals) {
        text += "\n" + ShowLocals(thread);
    }
    return text;
}

void DumpThread(lua_State* L, lua_State* thread, const std::string& name,
                const DumpOptions& options) {
    if (thread == nullptr || !lua_checkstack(thread, 1)) {
        return;
    }
    const std::string text = "Lua thread " + name + ": " + StatusOf(L, thread) + " at " +
                             PlaceOf(thread) + ShowStack(L, thread, options);
    wxLogVerbose("%s", FromUtf8(text));
}

// A task with the coroutines inside it that wait.
void DumpTask(lua_State* L, const Task& task, const DumpOptions& options) {
    lua_State* const innermost = task.parked.empty() ? task.thread : task.parked.front();
    if (!lua_checkstack(task.thread, 1) || !lua_checkstack(innermost, 1)) {
        return;
    }
    const auto since =
        std::chrono::duration_cast<std::chrono::milliseconds>(Task::Clock::now() - task.since);
    std::string text = "Lua task " + task.name + ": " + NameOf(task.status);
    if (task.status == Task::Status::kWaiting) {
        text += " for " + (task.result ? "its turn" : Describe(task));
    }
    text += " since " + std::to_string(since.count()) + " ms at " + PlaceOf(innermost);
    for (lua_State* thread : task.parked) {
        text += ShowStack(L, thread, options);
    }
    text += ShowStack(L, task.thread, options);
    wxLogVerbose("%s", FromUtf8(text));
}

void DumpTasks(lua_State* L, const DumpOptions& options) {
    CTaskScheduler::PushTasks(L);
    for (lua_pushnil(L); lua_next(L, -2) != 0; lua_pop(L, 1)) {
        if (const Task* task = Task::At(L, -1)) {
            DumpTask(L, *task, options);
        }
    }
    lua_pop(L, 1);
}

void DumpThreads(lua_State* L, const DumpOptions& options) {
    lua_rawgeti(L, LUA_REGISTRYINDEX, LUA_RIDX_MAINTHREAD);
    DumpThread(L, lua_tothread(L, -1), "main", options);
    lua_pop(L, 1);
    PushThreads(L);
    lua_pushnil(L);
    while (lua_next(L, -2)) {
        lua_State* thread = lua_tothread(L, -2);  // null if a script has put something else there
        DumpThread(L, thread, wxString::Format("%p", static_cast<void*>(thread)).utf8_string(),
                   options);
        lua_pop(L, 1);
    }
    lua_pop(L, 1);
}

void DumpVariables(const CDom& dom) {
    std::string text = "Domain variables:";
    for (const std::string& name : dom.Names("")) {
        text +=
            "\n\t" + name + " = " + (IsSecretName(name) ? "***" : BoundedLogText(dom.Get(name)));
    }
    wxLogVerbose("%s", FromUtf8(text));
}

int Dump(lua_State* L) {
    const DomCall call(L, "dom:DumpAllLua");
    const DumpOptions options{.locals = lua_toboolean(L, 3) != 0,
                              .tracebacks = lua_toboolean(L, 4) != 0,
                              .variables = lua_toboolean(L, 5) != 0};
    if (lua_State* thread = lua_tothread(L, 2)) {
        DumpThread(L, thread, "asked for", options);
    } else {
        DumpThreads(L, options);
        DumpTasks(L, options);
    }
    if (options.variables) {
        DumpVariables(call.dom);
    }
    return 0;
}

}  // namespace

int CDom::DumpAllLua(lua_State* L) {
    return CallGuarded(L, Dump);
}

}  // namespace ZelkaCore
