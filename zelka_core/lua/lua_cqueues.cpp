#include "zelka_core/lua/lua_cqueues.h"

#include <system_error>
#include <utility>

#include "platform/events.h"
#include "zelka_core/lua/lua_arguments.h"
#include "zelka_core/lua/lua_class.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/task_scheduler.h"

namespace ZelkaCore {

namespace {

// In the registry.
constexpr char kClass[] = "ZelkaCore.controllerWait";
constexpr const char* kRunning = "ZelkaCore.cqueues.running";  // cqueues.running
constexpr const char* kPoll = "ZelkaCore.cqueues.poll";        // what cqueues takes a yield by
constexpr const char* kWaits = "ZelkaCore.controllerWaits";    // by Lua threads

CTaskScheduler& SchedulerOf(lua_State* L) {
    return *CLuaInterpreter::Of(L)->SchedulerIfAny();
}

// The waits of one coroutine of a controller, one after the other. Each coroutine looks for itself,
// as a task does: what one of them has seen is still news to the others.
class ControllerWait : public TaskLooks, public CWait {
  public:
    // What `seen` has seen is no news.
    ControllerWait(CWaitEngine& engine, const CConditions::Looks& seen)
        : TaskLooks{seen}, CWait(engine, looks) {}

    // Of a task that is cancelled it is looked at once the other coroutines had their turn.
    void Start(lua_State* L, std::vector<Awaited> items, const Deadline& deadline) {
        OpenEvent();
        m_waiter = L;
        m_task = SchedulerOf(L).Current();
        Begin(std::move(items), deadline);
        m_result = Look();
        if (m_result || (m_task != nullptr && m_task->isCancelled)) {
            OnWoken();
        }
    }

    std::optional<WaitResult> TakeResult() {
        (void)TakeSignal(*m_event);
        if (!m_result) {
            m_result = Look();
        }
        if (m_result) {
            m_waiter = nullptr;
        }
        return std::exchange(m_result, std::nullopt);
    }

    void Block(lua_State* L) {
        if (!m_result) {
            m_result = SchedulerOf(L).BlockAll(L, *this);
        }
    }

    void GiveUp() {
        End();
        m_result.reset();
        m_waiter = nullptr;
    }

    // Has the wait looked at if it goes on and the task has begun it.
    bool WakeIfOf(const Task* task) {
        const bool isOfTask = m_waiter != nullptr && m_task == task;
        if (isOfTask) {
            OnWoken();
        }
        return isOfTask;
    }

    [[nodiscard]] bool IsOf(lua_State* L) const { return m_waiter == L; }
    [[nodiscard]] int Descriptor() const { return DescriptorOf(*m_event); }

  private:
    // Its controller may never be stepped again.
    [[nodiscard]] bool IsSureToLook() const override { return false; }

    void OnWoken() override { (void)SetEvent(m_handle->Get()); }

    void OpenEvent() {
        if (m_event != nullptr) {
            return;
        }
        HANDLE handle = 0;
        if (const auto error = CreateEventW(false, false, handle)) {
            throw std::system_error(error, "no descriptor to wait with");
        }
        m_handle.emplace(handle);
        m_event = FindEvent(handle);
    }

    // Open from the first wait on.
    std::optional<ScopedHandle> m_handle;
    EventPtr m_event;

    lua_State* m_waiter = nullptr;  // the coroutine, or one that it has resumed; null between waits
    const Task* m_task = nullptr;   // the task that ran when the wait began; only for comparison
    std::optional<WaitResult> m_result;  // not taken yet
};

using Waits = LuaClass<ControllerWait, kClass>;

// Pushes the wait that a Lua thread has; nil, with null returned, if it has none.
ControllerWait* PushWaitOf(lua_State* L, lua_State* thread) {
    lua_getfield(L, LUA_REGISTRYINDEX, kWaits);
    PushThread(L, thread);
    lua_rawget(L, -2);
    lua_remove(L, -2);
    return Waits::At(L, -1);
}

// Pushes a new wait for `thread`, which has seen what the running code has.
ControllerWait& PushNewWait(lua_State* L, lua_State* thread) {
    CTaskScheduler& scheduler = SchedulerOf(L);
    const ControllerWait* parent = PushWaitOf(L, scheduler.BaseOf(L));
    ControllerWait& wait = Waits::Make(
        L, scheduler.Engine(), parent != nullptr ? parent->looks : scheduler.LooksOfRunning());
    lua_getfield(L, LUA_REGISTRYINDEX, kWaits);
    PushThread(L, thread);
    lua_pushvalue(L, -3);
    lua_rawset(L, -3);
    lua_pop(L, 1);
    lua_remove(L, -2);
    return wait;
}

int YieldAll(lua_State* L) {
    return lua_yield(L, lua_gettop(L));
}

// setUp(running, poll): what cqueues has under these names.
int SetUp(lua_State* L) {
    lua_settop(L, 2);
    lua_setfield(L, LUA_REGISTRYINDEX, kPoll);
    lua_setfield(L, LUA_REGISTRYINDEX, kRunning);
    return 0;
}

// look(coroutine): from now on raises of conditions are news to it.
int LookFromNow(lua_State* L) {
    return CallGuarded(L, [](lua_State* state) {
        luaL_checktype(state, 1, LUA_TTHREAD);
        lua_State* thread = lua_tothread(state, 1);
        luaL_argcheck(state, lua_checkstack(thread, 1), 1, "stack overflow");
        (void)PushNewWait(state, thread);
        return 0;
    });
}

// wake(): has the waits looked at that the running task has begun in controllers and that go on,
// and returns whether there are any.
int WakeAll(lua_State* L) {
    bool isAny = false;
    lua_settop(L, 0);
    lua_getfield(L, LUA_REGISTRYINDEX, kWaits);
    for (lua_pushnil(L); lua_next(L, 1); lua_pop(L, 1)) {
        if (auto* wait = Waits::At(L, -1)) {
            isAny = wait->WakeIfOf(SchedulerOf(L).Current()) || isAny;
        }
    }
    lua_pushboolean(L, isAny ? 1 : 0);
    return 1;
}

int OpenCqueues(lua_State* L) {
    const luaL_Reg functions[] = {
        {"setUp", SetUp}, {"look", LookFromNow}, {"wake", WakeAll}, {nullptr, nullptr}};
    (void)luaL_getsubtable(L, LUA_REGISTRYINDEX, kWaits);
    lua_createtable(L, 0, 1);  // a metatable that lets the threads be collected
    lua_pushliteral(L, "k");
    lua_setfield(L, -2, "__mode");
    lua_setmetatable(L, -2);
    luaL_newlib(L, functions);
    return 1;
}

}  // namespace

void PreloadCqueues(lua_State* L) {
    Preload(L, "task.cqueues.core", OpenCqueues);
}

bool IsInController(lua_State* L) {
    lua_getfield(L, LUA_REGISTRYINDEX, kRunning);
    if (!lua_isnil(L, -1)) {
        lua_call(L, 0, 1);
    }
    const bool isInController = lua_toboolean(L, -1) != 0;
    lua_pop(L, 1);
    return isInController;
}

void BeginInController(lua_State* L, std::vector<Awaited> items, const Deadline& deadline) {
    lua_State* base = SchedulerOf(L).BaseOf(L);
    ControllerWait* wait = PushWaitOf(L, base);
    if (wait == nullptr) {
        lua_pop(L, 1);
        wait = &PushNewWait(L, base);
    }
    lua_replace(L, 1);
    wait->Start(L, std::move(items), deadline);
}

int PollInController(lua_State* L, lua_CFunction continuation) {
    lua_pushcfunction(L, YieldAll);
    lua_getfield(L, LUA_REGISTRYINDEX, kPoll);
    lua_createtable(L, 0, 2);
    lua_pushinteger(L, Waits::At(L, 1)->Descriptor());
    lua_setfield(L, -2, "pollfd");
    lua_pushliteral(L, "r");
    lua_setfield(L, -2, "events");
    (void)lua_pcallk(L, 2, 0, 0, 0, continuation);
    lua_pop(L, 1);  // why it cannot be left
    (void)CallGuarded(L, [](lua_State* state) {
        Waits::At(state, 1)->Block(state);
        return 0;
    });
    return continuation(L);
}

std::optional<WaitResult> ResultInController(lua_State* L) {
    ControllerWait& wait = *Waits::At(L, 1);
    if (!wait.IsOf(L)) {
        luaL_error(L, "dom:Wait: the coroutine was resumed by somebody else");
    }
    if (const Task* task = SchedulerOf(L).Current(); task != nullptr && task->isCancelled) {
        wait.GiveUp();
        SchedulerOf(L).RaiseIfCancelled(L);
    }
    return wait.TakeResult();
}

}  // namespace ZelkaCore
