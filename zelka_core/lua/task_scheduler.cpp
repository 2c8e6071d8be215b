#include "zelka_core/lua/task_scheduler.h"

#include <wx/log.h>

#include <algorithm>
#include <utility>

#include "zelka_core/log/log_text.h"
#include "zelka_core/lua/lua_arguments.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/store/agent_event.h"
#include "zelka_core/store/agent_event_codes.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

constexpr const char* kTasks = "ZelkaCore.tasks";
constexpr std::size_t kErrorShown = 1024;  // bytes of an error in it

// The error value of a task, in words.
std::string ErrorText(lua_State* L) {
    if (lua_type(L, -1) == LUA_TSTRING || lua_type(L, -1) == LUA_TNUMBER) {
        std::size_t size = 0;
        lua_pushvalue(L, -1);  // a number is converted in place
        const char* text = lua_tolstring(L, -1, &size);
        std::string error(text, size);
        lua_pop(L, 1);
        return error;
    }
    return std::string("(error object is a ") + luaL_typename(L, -1) + " value)";
}

// What a service, and an application that knows no `app.stop`, waits for.
void SetStopEvent(const CDom& dom) {
    if (const auto event = dom.Find("app.windows.service.stopEvent")) {
        if (const auto* handle = std::get_if<std::int64_t>(&*event)) {
            (void)SetEvent(static_cast<HANDLE>(*handle));  // if it is still open
        }
    }
}

// Keeps what the task has returned, or its error, with its handle on top of the stack.
int KeepResults(lua_State* L) {
    auto* thread = static_cast<lua_State*>(lua_touserdata(L, 2));
    const int count = lua_gettop(thread);
    luaL_checkstack(L, count + 1, "too many results of a task");
    lua_createtable(L, count, 1);
    for (int i = 1; i <= count; ++i) {
        lua_pushvalue(thread, i);
        lua_xmove(thread, L, 1);
        lua_rawseti(L, -2, i);
    }
    lua_pushinteger(L, count);
    lua_setfield(L, -2, "n");
    lua_setuservalue(L, 1);
    lua_pushnil(L);
    CTaskScheduler::SetTask(L, thread);
    return 0;
}

// Sets a value for a scope.
template <class T>
class Scoped {
  public:
    Scoped(T& place, T value) : m_place(place), m_before(std::exchange(place, value)) {}
    ~Scoped() { m_place = m_before; }
    Scoped(const Scoped&) = delete;
    Scoped& operator=(const Scoped&) = delete;

  private:
    T& m_place;
    const T m_before;
};

}  // namespace

// A wait in a place that does not give way: its owner looks at it.
class CTaskScheduler::HereWait : public CWait {
  public:
    using CWait::CWait;

  private:
    void OnWoken() override {}
};

CTaskScheduler::CTaskScheduler(CLuaInterpreter& interpreter, CDom& dom)
    : m_interpreter(interpreter), m_dom(dom), m_engine(dom.Conditions()) {
}

void CTaskScheduler::PushTasks(lua_State* L) {
    (void)luaL_getsubtable(L, LUA_REGISTRYINDEX, kTasks);
}

void CTaskScheduler::PushTask(lua_State* L, lua_State* thread) {
    PushTasks(L);
    PushThread(L, thread);
    lua_rawget(L, -2);
    lua_remove(L, -2);
}

void CTaskScheduler::SetTask(lua_State* L, lua_State* thread) {
    PushTasks(L);
    PushThread(L, thread);
    lua_pushvalue(L, -3);
    lua_rawset(L, -3);
    lua_pop(L, 2);
}

void CTaskScheduler::Queue(Task& task) {
    if (!std::exchange(task.isQueued, true)) {
        m_ready.push_back(&task);
    }
    if (m_interpreter.Lock().IsServing()) {
        m_engine.Wake();  // the thread that runs Lua may sleep meanwhile
    }
}

void CTaskScheduler::Forget(Task& task) {
    if (task.isQueued) {
        std::erase(m_ready, &task);
    }
}

Task& CTaskScheduler::Start(lua_State* L, const std::string& name, bool essential, int arguments) {
    luaL_checkstack(L, 6, "no room to start a task");
    const int first = lua_gettop(L) - arguments;
    lua_State* thread = lua_newthread(L);
    lua_insert(L, first);
    if (!lua_checkstack(thread, arguments + 1)) {
        luaL_error(L, "task.start: too many arguments");
    }
    Task& task = Task::Make(L, *this, thread, name, essential);
    lua_insert(L, first);
    lua_pushvalue(L, first);
    SetTask(L, thread);
    lua_xmove(L, thread, arguments + 1);
    lua_settop(L, first);
    task.arguments = arguments;
    ++m_living;
    Queue(task);
    return task;
}

bool CTaskScheduler::Cancel(Task& task) {
    if (!task.IsLiving()) {
        return false;
    }
    task.isCancelled = true;
    if (task.status == Task::Status::kWaiting) {
        task.End();
        task.result = WaitResult{WaitResult::Kind::kTimeout};
        Queue(task);
    }
    return true;
}

void CTaskScheduler::CancelAll(lua_State* L) {
    PushTasks(L);
    for (lua_pushnil(L); lua_next(L, -2); lua_pop(L, 1)) {
        if (auto* task = Task::At(L, -1)) {
            (void)Cancel(*task);
        }
    }
    lua_pop(L, 1);
}

WaitResult CTaskScheduler::WaitHere(lua_State* L, std::vector<Awaited> items,
                                    const Deadline& deadline) {
    HereWait wait(m_engine, LooksOfRunning());
    wait.Begin(std::move(items), deadline);
    if (m_current != nullptr || m_outside != nullptr || m_interpreter.IsClosing()) {
        return Block(L, wait);
    }
    const Scoped outside(m_outside, L);
    for (;;) {
        RunReady(L);
        if (const auto result = wait.Look()) {
            (void)m_interpreter.Stretch().Begin();
            return *result;
        }
        if (m_ready.empty()) {
            Sleep(L);
        }
    }
}

// Waits while no task runs. A state that is being closed has nobody left to wait for.
WaitResult CTaskScheduler::Block(lua_State* L, CWait& wait) {
    for (;;) {
        if (const auto result = wait.Look()) {
            return *result;
        }
        if (m_interpreter.IsClosing()) {
            return {WaitResult::Kind::kTimeout};
        }
        Sleep(L);
    }
}

void CTaskScheduler::Sleep(lua_State* L) {
    m_interpreter.Stretch().End();
    {
        const CLuaStateLock::GiveBack giveBack(m_interpreter.Lock(), L);
        m_engine.Sleep();
    }
    (void)m_interpreter.Stretch().Begin();
}

// Each of those that are ready now has its turn.
void CTaskScheduler::RunReady(lua_State* L) {
    if (m_living == 0) {
        return;
    }
    m_engine.Gather();
    for (std::size_t left = m_ready.size(); left > 0 && !m_ready.empty(); --left) {
        Task& task = *m_ready.front();
        m_ready.pop_front();
        task.isQueued = false;
        if (task.status == Task::Status::kWaiting && !task.result) {
            task.result = task.Look();
            if (!task.result) {
                continue;  // somebody else was faster
            }
        }
        Step(L, task);
    }
}

void CTaskScheduler::Step(lua_State* L, Task& task) {
    if (task.status == Task::Status::kReady && task.isCancelled) {
        lua_settop(task.thread, 0);
        lua_pushliteral(task.thread, "cancelled");
        return Finish(L, task, LUA_ERRRUN);
    }
    task.SetStatus(Task::Status::kRunning, m_interpreter.Stretch().Begin());
    m_current = &task;
    m_innermost = task.thread;
    const int status = lua_resume(task.thread, L, std::exchange(task.arguments, 0));
    m_current = nullptr;
    m_innermost = nullptr;
    const bool givesWay = std::exchange(m_givesWay, nullptr) == task.thread;
    if (status != LUA_YIELD) {
        return Finish(L, task, status);
    }
    if (!givesWay) {
        lua_settop(task.thread, 0);
        lua_pushliteral(task.thread, "the task has yielded: a task gives way by waiting");
        return Finish(L, task, LUA_ERRRUN);
    }
    task.SetStatus(Task::Status::kWaiting);
    task.result = task.Look();
    if (task.result) {
        Queue(task);
    }
}

void CTaskScheduler::Finish(lua_State* L, Task& task, int status) {
    const bool isDone = status == LUA_OK;
    task.SetStatus(isDone             ? Task::Status::kDone
                   : task.isCancelled ? Task::Status::kCancelled
                                      : Task::Status::kFailed);
    if (task.status == Task::Status::kFailed) {
        ReportFailure(L, task);
    }
    if (!isDone && lua_gettop(task.thread) > 1) {
        lua_replace(task.thread, 1);
        lua_settop(task.thread, 1);  // the error alone
    }
    task.Push(L);
    lua_getuservalue(L, -1);  // keeps the signal until it has fired
    lua_insert(L, -2);
    lua_pushcfunction(L, KeepResults);
    lua_pushvalue(L, -2);
    lua_pushlightuserdata(L, task.thread);
    if (lua_pcall(L, 2, 0, 0) != LUA_OK) {
        wxLogError("What task '%s' has returned is lost: %s", FromUtf8(task.name),
                   FromUtf8(ErrorText(L)));
        lua_pop(L, 1);
    }
    if (task.ended) {
        std::exchange(task.ended, nullptr)->Fire(static_cast<std::size_t>(-1));
    }
    if (--m_living == 0) {
        m_allEnded.Fire(static_cast<std::size_t>(-1));
    }
    lua_pop(L, 2);
}

void CTaskScheduler::ReportFailure(lua_State* L, Task& task) {
    const std::string error = ErrorText(task.thread);
    luaL_traceback(L, task.thread, nullptr, 0);
    const std::string traceback = lua_tostring(L, -1);
    lua_pop(L, 1);
    Report(task.name, error, traceback);
    if (task.isEssential) {
        wxLogError("The run ends, as task '%s' is essential", FromUtf8(task.name));
        m_essentialFailed = true;
        m_dom.RequestStop();
        SetStopEvent(m_dom);
    }
}

void CTaskScheduler::Report(const std::string& name, const std::string& error,
                            const std::string& traceback) {
    wxLogError("Task '%s' has failed: %s\n%s", FromUtf8(name), FromUtf8(BoundedLogText(error)),
               FromUtf8(BoundedLogText(traceback)));
    CAgentEvent event =
        CAgentEvent::Now(kEventTaskFailed, CAgentEvent::SeverityError,
                         FromUtf8("task|" + name + "|" + BoundedLogText(error, kErrorShown)));
    m_dom.AgentEventWrite(event);
}

}  // namespace ZelkaCore
