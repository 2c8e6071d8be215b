#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <lua.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zelka_core/lua/task.h"
#include "zelka_core/store/wait_engine.h"

namespace ZelkaCore {

class CDom;
class CLuaInterpreter;

// Runs the tasks of one Lua state. A task is a Lua thread that gives way where it waits, and only
// there. Whoever waits outside of tasks, the application's own functions or the host, lets the
// tasks run meanwhile. For the thread that holds the lock of the state, which is given back while
// nothing can run.
class CTaskScheduler {
  public:
    using Clock = std::chrono::steady_clock;

    // Both have to outlive the scheduler. Throws std::system_error without a descriptor left.
    CTaskScheduler(CLuaInterpreter& interpreter, CDom& dom);
    CTaskScheduler(const CTaskScheduler&) = delete;
    CTaskScheduler& operator=(const CTaskScheduler&) = delete;

    [[nodiscard]] CWaitEngine& Engine() { return m_engine; }

    // The task whose code runs; null outside of tasks.
    [[nodiscard]] Task* Current() const { return m_current; }
    // Whether `L` is the Lua thread that the running task is in, reached by ways that the host
    // knows: only then it can give way. C modules may resume Lua threads of their own.
    [[nodiscard]] bool MayGiveWay(lua_State* L) const {
        return m_current != nullptr && m_innermost == L;
    }

    // Makes a task of the function and the arguments on top of the stack, and leaves its handle in
    // their place. It runs from the next wait on. Raises a Lua error if there is no memory.
    // This and Cancel also in work of another thread (lua_state_lock.h).
    Task& Start(lua_State* L, const std::string& name, bool essential, int arguments);

    // Has the task's wait, this one or the next, and each later one raise an error. False if it has
    // ended.
    bool Cancel(Task& task);
    void CancelAll(lua_State* L);

    // Waits with what is left of the call on `L`, outside of tasks or where a task cannot give way:
    // the first lets all tasks run, the second none. May raise a Lua error or throw.
    WaitResult WaitHere(lua_State* L, std::vector<Awaited> items, const Deadline& deadline);

    // How the running task waits, where MayGiveWay: it begins the wait, Current()->Begin, and gives
    // way, to go on in `continuation` in `L`; or in the function that gives way, when the wait is
    // over, if there is a place that cannot be left. TakeResult has the result in either.
    void GiveWay(lua_State* L, lua_CFunction continuation);
    WaitResult TakeResult(lua_State* L);
    // Raises the error that a cancelled task's waits raise.
    void RaiseIfCancelled(lua_State* L) const;

    // For the host's coroutine.resume, which resumes `thread` from `L`. Outside of tasks, and in
    // Lua threads that the host does not know of, the first two change nothing.
    void EnterCoroutine(lua_State* L, lua_State* thread);
    void LeaveCoroutine(lua_State* L, lua_State* thread);
    // Whether the coroutine has yielded for a wait of the host. Then `L` has to give way as well,
    // to take the coroutine back, and to resume it with nothing.
    bool TakeGivesWay(lua_State* L, lua_State* thread);
    void TakeBack(lua_State* L, lua_State* thread);
    // Whether the Lua thread waits for the host, which alone may resume it.
    bool IsParked(lua_State* L, lua_State* thread) const;

    // The Lua thread from which the host's coroutine.resume has, directly or not, resumed `L`; `L`
    // itself if it has not.
    [[nodiscard]] lua_State* BaseOf(lua_State* L) const;
    // What the running code has seen: that of the task, or what is outside of tasks.
    [[nodiscard]] CConditions::Looks& LooksOfRunning() {
        return m_current != nullptr ? m_current->looks : m_looks;
    }
    // Waits while no task runs, where a wait that has begun cannot give way.
    WaitResult BlockAll(lua_State* L, CWait& wait);

    // The Lua thread that waits outside of tasks and lets them run; null if there is none.
    [[nodiscard]] lua_State* Outside() const { return m_outside; }

    // How many tasks have not ended; any thread. The signal fires when it has become 0.
    [[nodiscard]] std::size_t Living() const { return m_living; }
    [[nodiscard]] CSignal& AllEnded() { return m_allEnded; }

    // Whether a task has failed without which the application is not to run.
    [[nodiscard]] bool HasEssentialFailed() const { return m_essentialFailed; }

    // No task is started any more: the application is about to end.
    void Close() { m_closed = true; }
    [[nodiscard]] bool IsClosed() const { return m_closed; }

    // How long a task may go on after the run was asked to stop, and as long again after it was
    // cancelled: the variable `app.stop.patience`, in milliseconds.
    [[nodiscard]] std::chrono::milliseconds Patience() const;
    // From that time on an error is raised in the code of a cancelled task wherever it is: the end
    // of a run does not depend on its tasks. One that does not even wait is treated so in any case.
    void SetEnd(Clock::time_point endAt) { m_endAt = endAt; }
    // Called every so often inside running Lua code. May raise that error in `L`.
    void OnLook(lua_State* L);

    // Writes that a task, or something it calls at every beat, has failed: to the log with
    // `traceback`, and as an agent event.
    void Report(const std::string& name, const std::string& error, const std::string& traceback);

    // Pushes the table of the tasks that have not ended: handles by Lua threads. Their coroutines
    // that wait are in it, too, with true.
    static void PushTasks(lua_State* L);
    // Pushes what the table has for a Lua thread; sets it to the value on top of the stack, which
    // is taken. May raise a Lua error.
    static void PushTask(lua_State* L, lua_State* thread);
    static void SetTask(lua_State* L, lua_State* thread);

    // For tasks.
    void Queue(Task& task);
    void Forget(Task& task);

  private:
    class HereWait;

    // What the first look behind a request to stop has found.
    struct Stop {
        Clock::time_point seen;
        std::chrono::milliseconds patience;
    };

    void RunReady(lua_State* L);
    void Step(lua_State* L, Task& task);
    void Finish(lua_State* L, Task& task, int status);
    void Sleep(lua_State* L);
    WaitResult Block(lua_State* L, CWait& wait);
    void BlockInstead(lua_State* L);
    void ReportFailure(lua_State* L, Task& task);

    // Constant after construction.
    CLuaInterpreter& m_interpreter;
    CDom& m_dom;

    CWaitEngine m_engine;
    CConditions::Looks m_looks{0};  // of whoever is outside of tasks
    CSignal m_allEnded;
    std::deque<Task*> m_ready;
    Task* m_current = nullptr;
    lua_State* m_innermost = nullptr;  // the Lua thread that the running task is in
    lua_State* m_givesWay = nullptr;   // the Lua thread that has yielded for a wait
    // Those that coroutine.resume has resumed and that run, each behind its resumer.
    std::vector<std::pair<lua_State*, lua_State*>> m_resumed;
    lua_State* m_outside = nullptr;
    bool m_blockTold = false;
    bool m_closed = false;
    bool m_essentialFailed = false;
    std::atomic<std::size_t> m_living = 0;
    std::optional<Stop> m_stop;
    std::optional<Clock::time_point> m_endAt;
};

}  // namespace ZelkaCore
