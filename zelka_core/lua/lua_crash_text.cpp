#include "zelka_core/lua/lua_crash_text.h"

#include <array>
#include <atomic>
#include <lua.hpp>
#include <thread>

#include "zelka_core/lua/lua_frame.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/lua_resume.h"
#include "zelka_core/lua/task_scheduler.h"

namespace ZelkaCore {
namespace {

constexpr int kInnermostShown = 30;  // of a Lua thread's levels, and the outermost
constexpr int kOutermostShown = 10;
constexpr int kThreadsShown = 10;  // that have resumed one another, and the main one
constexpr std::size_t kTaskNameShown = 100;

std::atomic<CLuaInterpreter*> g_shown{nullptr};

void AddHeadline(CLuaInterpreter& lua, BoundedText& text) {
    const auto owner = lua.Lock().Owner();
    if (owner == std::this_thread::get_id()) {
        (void)text.Add("Lua ran in this thread");
    } else if (owner != std::thread::id()) {
        (void)text.Add("Lua ran in another thread");
    } else {
        (void)text.Add("Lua was waiting");
    }
    const CTaskScheduler* scheduler = lua.SchedulerIfAny();
    const Task* task = scheduler != nullptr ? scheduler->Current() : nullptr;
    if (task != nullptr) {
        (void)text.Add(", in task '").AddShown(task->name.c_str(), kTaskNameShown).Add("'");
    }
}

// The levels of a Lua thread, behind `title` if there is any.
void AddLevels(const char* title, lua_State* thread, BoundedText& text) {
    const int count = CountFrames(thread, 0);
    if (count != 0) {
        (void)text.Add(title);
    }
    const int skipTo = count - kOutermostShown;
    lua_Debug frame;
    for (int level = 0; lua_getstack(thread, level, &frame) != 0 && level < count; ++level) {
        if (level == kInnermostShown && level < skipTo) {
            (void)text.Add("\n  (").Add(std::int64_t{skipTo - level}).Add(" more)");
            level = skipTo - 1;
        } else {
            AddFrame("\n  ", thread, frame, text);
        }
    }
}

int DescribeOnce(lua_State*) {
    std::array<char, 1024> room{};
    (void)DescribeLua(room.data(), room.size());
    return 0;
}

// Has all that DescribeLua calls bound by the dynamic linker, which may lock.
void Rehearse(lua_State* L) {
    if (luaL_loadstring(L, "local describe = ... describe()") != LUA_OK) {
        (void)lua_error(L);
    }
    lua_pushcfunction(L, DescribeOnce);
    lua_call(L, 1, 0);
}

}  // namespace

void ShowInCrashDumps(CLuaInterpreter* interpreter) {
    g_shown.store(interpreter);
    if (interpreter != nullptr) {
        Rehearse(interpreter->L());
    }
}

std::size_t DescribeLua(char* buffer, std::size_t size) {
    CLuaInterpreter* lua = g_shown.load();
    if (lua == nullptr) {
        return 0;
    }
    BoundedText text(buffer, size);
    AddHeadline(*lua, text);
    const char* title = "";
    const LuaResume* resume = lua->Resumed();
    for (int i = 0; i < kThreadsShown && resume != nullptr; ++i, resume = resume->outer) {
        AddLevels(title, resume->thread, text);
        title = "\nresumed by";
    }
    AddLevels(resume != nullptr ? "\n(more), resumed by" : title, lua->L(), text);
    return text.Length();
}

}  // namespace ZelkaCore
