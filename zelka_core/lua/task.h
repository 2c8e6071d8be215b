#pragma once

#include <chrono>
#include <lua.hpp>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zelka_core/store/wait.h"

namespace ZelkaCore {

class CTaskScheduler;

// Where a task prints to, in the place of the output of the whole application.
class TaskOutput {
  public:
    virtual ~TaskOutput() = default;

    // May raise an error by throwing std::exception.
    virtual void Write(std::string_view text) = 0;
};

// What a task has seen of the store's conditions.
struct TaskLooks {
    CConditions::Looks looks;
};

// One task: a Lua thread that the scheduler runs, and what it waits for. It lives in a userdata,
// its handle, which the scheduler keeps until the task has ended. For the thread that holds the
// lock of the state.
class Task : public TaskLooks, public CWait {
  public:
    using Clock = std::chrono::steady_clock;
    enum class Status { kReady, kRunning, kWaiting, kDone, kFailed, kCancelled };

    // Makes a task in a new userdata on top of the stack of `L`. `thread` is to have its function
    // and the arguments on its stack. May raise a Lua error.
    static Task& Make(lua_State* L, CTaskScheduler& scheduler, lua_State* thread,
                      const std::string& name, bool essential);

    // The task whose handle stands there; null if it is something else.
    static Task* At(lua_State* L, int index);

    // Pushes the metatable of the handles, to be added to. May raise a Lua error.
    static void PushMetatable(lua_State* L);

    Task(CTaskScheduler& owner, lua_State* L, std::string taskName, bool essential);
    ~Task() override;

    [[nodiscard]] bool IsLiving() const { return status <= Status::kWaiting; }
    void SetStatus(Status newStatus, Clock::time_point now = Clock::now());

    // Pushes the handle of a task that has not ended.
    void Push(lua_State* L) const;

    // Constant after construction.
    CTaskScheduler& scheduler;
    lua_State* const thread;
    const std::string name;
    const bool isEssential;  // if it fails, the run ends

    Status status = Status::kReady;
    bool isCancelled = false;                // its waits raise an error from now on
    bool isEnded = false;                    // it is made to end, as it does not end by itself
    bool isQueued = false;                   // among those that the scheduler looks at next
    int arguments = 0;                       // how many the next resume hands over
    Clock::time_point since = Clock::now();  // when it came into its status
    std::optional<WaitResult> result;        // of the wait from which it goes on next
    std::vector<lua_State*> parked;          // its coroutines that wait, the innermost first
    std::shared_ptr<TaskOutput> output;      // null: it has none of its own
    CSignal* ended = nullptr;                // for those who wait for it; beside the handle

  private:
    void OnWoken() override;
};

// "waiting", as scripts and dumps have it.
const char* NameOf(Task::Status status);

// What a wait waits for, in words for a dump.
std::string Describe(const CWait& wait);

}  // namespace ZelkaCore
