#include "zelka_core/lua/lua_tasks.h"

#include <algorithm>
#include <exception>
#include <string>

#include "zelka_core/lua/dom_lua_wait.h"
#include "zelka_core/lua/lua_arguments.h"
#include "zelka_core/lua/lua_coroutines.h"
#include "zelka_core/lua/lua_cqueues.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/task_scheduler.h"

namespace ZelkaCore {

namespace {

// A call of a function of the module.
class TaskCall : public LuaCall {
  public:
    using LuaCall::LuaCall;

    [[nodiscard]] CTaskScheduler& Scheduler() const {
        return *CLuaInterpreter::Of(L)->SchedulerIfAny();
    }

    [[nodiscard]] Task& TaskAt(int index) const {
        Task* task = Task::At(L, index);
        if (task == nullptr) {
            RaiseType(index, "task", "a task");
        }
        return *task;
    }

    // Raises an error at the author's line: level 1 is a function of the Lua module `task`.
    [[noreturn]] void Fail(const char* problem) const {
        luaL_where(L, 2);
        lua_pushfstring(L, "%s: %s", Member(), problem);
        lua_concat(L, 2);
        lua_error(L);
        std::terminate();  // lua_error does not return
    }
};

// start(name, essential, fn, ...): the handle of a new task.
int Start(const TaskCall& call) {
    const std::string name = call.Name(1);
    const bool isEssential = lua_toboolean(call.L, 2) != 0;
    if (lua_type(call.L, 3) != LUA_TFUNCTION) {
        call.RaiseType(3, "fn", "a function");
    }
    if (call.Scheduler().IsClosed()) {
        call.Fail("the application is shutting down");
    }
    call.Scheduler().Start(call.L, name, isEssential, lua_gettop(call.L) - 3);
    return 1;
}

// current(): the handle of the running task; nil outside of tasks.
int Current(const TaskCall& call) {
    if (const Task* task = call.Scheduler().Current()) {
        task->Push(call.L);
    } else {
        lua_pushnil(call.L);
    }
    return 1;
}

// list(): an array of the tasks that have not ended.
int List(const TaskCall& call) {
    lua_State* L = call.L;
    lua_settop(L, 0);
    lua_createtable(L, static_cast<int>(call.Scheduler().Living()), 0);
    CTaskScheduler::PushTasks(L);
    int count = 0;
    for (lua_pushnil(L); lua_next(L, 2); lua_pop(L, 1)) {
        if (Task::At(L, -1) != nullptr) {
            lua_pushvalue(L, -1);
            lua_rawseti(L, 1, ++count);
        }
    }
    lua_settop(L, 1);
    return 1;
}

int Cancel(const TaskCall& call) {
    lua_pushboolean(call.L, call.Scheduler().Cancel(call.TaskAt(1)) ? 1 : 0);
    return 1;
}

int Status(const TaskCall& call) {
    lua_pushstring(call.L, NameOf(call.TaskAt(1).status));
    return 1;
}

// isCancelled(): whether the running task was cancelled.
int IsCancelled(const TaskCall& call) {
    const Task* task = call.Scheduler().Current();
    lua_pushboolean(call.L, task != nullptr && task->isCancelled ? 1 : 0);
    return 1;
}

// ended(task): a signal that fires when the task has ended; nil if it has.
int Ended(const TaskCall& call) {
    lua_State* L = call.L;
    Task& task = call.TaskAt(1);
    if (!task.IsLiving()) {
        lua_pushnil(L);
        return 1;
    }
    if (&task == call.Scheduler().Current()) {
        call.Fail("a task cannot wait for itself");
    }
    lua_getuservalue(L, 1);
    if (lua_isnil(L, -1)) {
        lua_createtable(L, 0, 1);
        task.ended = &MakeSignal(L);
        lua_setfield(L, -2, "ended");
        lua_pushvalue(L, -1);
        lua_setuservalue(L, 1);
    }
    lua_getfield(L, -1, "ended");
    return 1;
}

// results(task): true and what it has returned; or nil and its error.
int Results(const TaskCall& call) {
    lua_State* L = call.L;
    const Task& task = call.TaskAt(1);
    const bool isDone = task.status == Task::Status::kDone;
    lua_getuservalue(L, 1);
    if (!lua_istable(L, -1)) {
        lua_pushnil(L);
        lua_pushliteral(L, "its results are lost");
        return 2;
    }
    const int table = lua_gettop(L);
    lua_getfield(L, table, "n");
    const int count = static_cast<int>(lua_tointeger(L, -1));
    luaL_checkstack(L, count + 1, "too many results of a task");
    if (isDone) {
        lua_pushboolean(L, 1);
    } else {
        lua_pushnil(L);
    }
    for (int i = 1; i <= count; ++i) {
        lua_rawgeti(L, table, i);
    }
    return count + 1;
}

// signal(): a new signal, to be waited for; fire(signal, count): wakes so many of its waiters, all
// if `count` is infinite.
int NewSignal(const TaskCall& call) {
    (void)MakeSignal(call.L);
    return 1;
}

int Fire(const TaskCall& call) {
    CSignal* signal = SignalAt(call.L, 1);
    if (signal == nullptr) {
        call.RaiseType(1, "signal", "a signal");
    }
    constexpr double kMost = 1e9;
    signal->Fire(static_cast<std::size_t>(std::clamp(luaL_checknumber(call.L, 2), 0.0, kMost)));
    return 0;
}

// report(name, error, traceback): tells of a failure as if a task had failed.
int Report(const TaskCall& call) {
    call.Scheduler().Report(call.Name(1), call.Text(2, "error"), call.Text(3, "traceback"));
    return 0;
}

// remember(coroutine): has dumps know of a Lua thread that somebody else has made.
int Remember(const TaskCall& call) {
    luaL_checktype(call.L, 1, LUA_TTHREAD);
    PushThreads(call.L);
    lua_pushvalue(call.L, 1);
    lua_pushboolean(call.L, 1);
    lua_rawset(call.L, -3);
    return 0;
}

// A handle's field: its name, or a method of the table in the upvalue.
int Index(lua_State* L) {
    const Task* task = Task::At(L, 1);
    if (task != nullptr && lua_type(L, 2) == LUA_TSTRING &&
        std::string("name") == lua_tostring(L, 2)) {
        PushText(L, task->name);
    } else {
        lua_settop(L, 2);
        lua_rawget(L, lua_upvalueindex(1));
    }
    return 1;
}

template <const char* member, int (*function)(const TaskCall&)>
int Guarded(lua_State* L) {
    return CallGuarded(L, [](lua_State* state) { return function(TaskCall(state, member)); });
}

constexpr char kStart[] = "task.start";
constexpr char kJoin[] = "task:join";
constexpr char kCancel[] = "task:cancel";
constexpr char kStatus[] = "task:status";
constexpr char kCore[] = "task.core";

constexpr luaL_Reg kFunctions[] = {{"start", Guarded<kStart, Start>},
                                   {"current", Guarded<kCore, Current>},
                                   {"list", Guarded<kCore, List>},
                                   {"cancel", Guarded<kCancel, Cancel>},
                                   {"status", Guarded<kStatus, Status>},
                                   {"isCancelled", Guarded<kCore, IsCancelled>},
                                   {"ended", Guarded<kJoin, Ended>},
                                   {"results", Guarded<kJoin, Results>},
                                   {"signal", Guarded<kCore, NewSignal>},
                                   {"fire", Guarded<kCore, Fire>},
                                   {"report", Guarded<kCore, Report>},
                                   {"remember", Guarded<kCore, Remember>},
                                   {nullptr, nullptr}};

// The module: its functions, and in `methods` the table of the methods of a handle, to be filled.
int OpenTasks(lua_State* L) {
    luaL_newlib(L, kFunctions);
    lua_newtable(L);
    Task::PushMetatable(L);
    lua_pushvalue(L, -2);
    lua_pushcclosure(L, Index, 1);
    lua_setfield(L, -2, "__index");
    lua_pushliteral(L, "task");
    lua_setfield(L, -2, "__metatable");
    lua_pop(L, 1);
    lua_setfield(L, -2, "methods");
    return 1;
}

}  // namespace

void PreloadTasks(lua_State* L, CDom& dom) {
    (void)CLuaInterpreter::Of(L)->Scheduler(dom);
    Preload(L, "task.core", OpenTasks);
    PreloadCqueues(L);
}

}  // namespace ZelkaCore
