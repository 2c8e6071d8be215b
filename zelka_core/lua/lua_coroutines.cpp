#include "zelka_core/lua/lua_coroutines.h"

#include "zelka_core/lua/lua_arguments.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/task_scheduler.h"

namespace ZelkaCore {

namespace {

constexpr const char* kThreads = "ZelkaCore.threads";

CTaskScheduler* SchedulerOf(lua_State* L) {
    CLuaInterpreter* interpreter = CLuaInterpreter::Of(L);
    return interpreter != nullptr ? interpreter->SchedulerIfAny() : nullptr;
}

// coroutine.create: makes a Lua thread and remembers it.
int CreateThread(lua_State* L) {
    luaL_checktype(L, 1, LUA_TFUNCTION);
    lua_settop(L, 1);
    PushThreads(L);
    lua_State* thread = lua_newthread(L);
    lua_pushvalue(L, -1);
    lua_pushboolean(L, 1);
    lua_rawset(L, 2);
    lua_pushvalue(L, 1);
    lua_xmove(L, thread, 1);
    return 1;
}

// Whether the thread can be resumed with the arguments on top of the stack of L. If not there is an
// error value.
bool CheckResumable(lua_State* L, lua_State* thread, int arguments) {
    if (!lua_checkstack(thread, arguments)) {
        lua_pushliteral(L, "too many arguments to resume");
        return false;
    }
    if (lua_status(thread) == LUA_OK && lua_gettop(thread) == 0) {
        lua_pushliteral(L, "cannot resume dead coroutine");
        return false;
    }
    const CTaskScheduler* scheduler = SchedulerOf(L);
    if (scheduler != nullptr && scheduler->IsParked(L, thread)) {
        lua_pushliteral(L, "cannot resume a coroutine that waits");
        return false;
    }
    return true;
}

enum class Resumed { kDone, kFailed, kGivesWay };

// Resumes the thread with so many arguments from the top of the stack of L, and leaves its results
// there, or an error value. If it gives way for a wait of the host there is nothing.
Resumed Resume(lua_State* L, lua_State* thread, int arguments) {
    CTaskScheduler* scheduler = SchedulerOf(L);
    lua_xmove(L, thread, arguments);
    if (scheduler != nullptr) {
        scheduler->EnterCoroutine(L, thread);
    }
    const int status = lua_resume(thread, L, arguments);
    scheduler = SchedulerOf(L);  // the coroutine may have been the first to wait
    if (scheduler != nullptr) {
        scheduler->LeaveCoroutine(L, thread);
    }
    if (status != LUA_OK && status != LUA_YIELD) {
        lua_xmove(thread, L, 1);
        return Resumed::kFailed;
    }
    if (status == LUA_YIELD && scheduler != nullptr && scheduler->TakeGivesWay(L, thread)) {
        return Resumed::kGivesWay;
    }
    const int results = lua_gettop(thread);
    if (!lua_checkstack(L, results + 1)) {
        lua_pop(thread, results);
        lua_pushliteral(L, "too many results to resume");
        return Resumed::kFailed;
    }
    lua_xmove(thread, L, results);
    return Resumed::kDone;
}

// Resumes until the coroutine gives way to its own resumer. If a wait of the host goes outwards,
// `continuation` goes on in its place.
bool ResumeThroughWaits(lua_State* L, lua_State* thread, int arguments,
                        lua_CFunction continuation) {
    for (;;) {
        const Resumed resumed = Resume(L, thread, arguments);
        if (resumed != Resumed::kGivesWay) {
            return resumed == Resumed::kDone;
        }
        arguments = 0;
        CTaskScheduler& scheduler = *SchedulerOf(L);
        scheduler.GiveWay(L, continuation);
        scheduler.TakeBack(L, thread);
    }
}

// What coroutine.resume returns, with the results behind the coroutine or the error value on top.
int FinishResume(lua_State* L, bool isDone) {
    lua_pushboolean(L, isDone ? 1 : 0);
    if (isDone) {
        lua_replace(L, 1);
        return lua_gettop(L);
    }
    lua_insert(L, -2);
    return 2;
}

int ContinueResume(lua_State* L) {
    return CallGuarded(L, [](lua_State* state) {
        lua_settop(state, 1);
        lua_State* thread = lua_tothread(state, 1);
        SchedulerOf(state)->TakeBack(state, thread);
        return FinishResume(state, ResumeThroughWaits(state, thread, 0, ContinueResume));
    });
}

// coroutine.resume.
int ResumeThread(lua_State* L) {
    return CallGuarded(L, [](lua_State* state) {
        lua_State* thread = lua_tothread(state, 1);
        luaL_argcheck(state, thread != nullptr, 1, "coroutine expected");
        const int arguments = lua_gettop(state) - 1;
        const bool isDone = CheckResumable(state, thread, arguments) &&
                            ResumeThroughWaits(state, thread, arguments, ContinueResume);
        return FinishResume(state, isDone);
    });
}

// What the function of coroutine.wrap returns or raises.
int FinishWrapped(lua_State* L, bool isDone) {
    if (isDone) {
        return lua_gettop(L);
    }
    if (lua_isstring(L, -1)) {
        luaL_where(L, 1);
        lua_insert(L, -2);
        lua_concat(L, 2);
    }
    return lua_error(L);
}

int ContinueWrapped(lua_State* L) {
    return CallGuarded(L, [](lua_State* state) {
        lua_settop(state, 0);
        lua_State* thread = lua_tothread(state, lua_upvalueindex(1));
        SchedulerOf(state)->TakeBack(state, thread);
        return FinishWrapped(state, ResumeThroughWaits(state, thread, 0, ContinueWrapped));
    });
}

// The function that coroutine.wrap returns.
int ResumeWrapped(lua_State* L) {
    return CallGuarded(L, [](lua_State* state) {
        lua_State* thread = lua_tothread(state, lua_upvalueindex(1));
        if (thread == nullptr) {  // a script has put something else there
            return luaL_error(state, "cannot resume dead coroutine");
        }
        const int arguments = lua_gettop(state);
        const bool isDone = CheckResumable(state, thread, arguments) &&
                            ResumeThroughWaits(state, thread, arguments, ContinueWrapped);
        return FinishWrapped(state, isDone);
    });
}

int WrapThread(lua_State* L) {
    (void)CreateThread(L);
    lua_pushcclosure(L, ResumeWrapped, 1);
    return 1;
}

}  // namespace

void PatchCoroutines(lua_State* L) {
    const luaL_Reg functions[] = {{"create", CreateThread},
                                  {"wrap", WrapThread},
                                  {"resume", ResumeThread},
                                  {nullptr, nullptr}};
    lua_getglobal(L, "coroutine");
    luaL_setfuncs(L, functions, 0);
    lua_pop(L, 1);
}

void PushThreads(lua_State* L) {
    if (luaL_getsubtable(L, LUA_REGISTRYINDEX, kThreads)) {
        return;
    }
    lua_createtable(L, 0, 1);  // a metatable that lets the threads be collected
    lua_pushliteral(L, "k");
    lua_setfield(L, -2, "__mode");
    lua_setmetatable(L, -2);
}

}  // namespace ZelkaCore
