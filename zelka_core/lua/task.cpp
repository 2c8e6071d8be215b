#include "zelka_core/lua/task.h"

#include "zelka_core/lua/lua_class.h"
#include "zelka_core/lua/task_scheduler.h"

namespace ZelkaCore {

namespace {

std::string DescribeItem(const Awaited& item) {
    if (const auto* name = std::get_if<std::string>(&item)) {
        return "'" + *name + "'";
    }
    if (const auto* awaited = std::get_if<AwaitedDescriptor>(&item)) {
        return "descriptor " + std::to_string(awaited->descriptor);
    }
    return std::holds_alternative<EventPtr>(item) ? "an event" : "a signal";
}

constexpr char kClass[] = "ZelkaCore.task";

using Handle = LuaClass<Task, kClass>;

}  // namespace

Task& Task::Make(lua_State* L, CTaskScheduler& scheduler, lua_State* thread,
                 const std::string& name, bool essential) {
    return Handle::Make(L, scheduler, thread, name, essential);
}

Task* Task::At(lua_State* L, int index) {
    return Handle::At(L, index);
}

void Task::PushMetatable(lua_State* L) {
    Handle::PushMetatable(L);
}

void Task::SetStatus(Status newStatus, Clock::time_point now) {
    status = newStatus;
    since = now;
}

void Task::Push(lua_State* L) const {
    CTaskScheduler::PushTask(L, thread);
}

Task::Task(CTaskScheduler& owner, lua_State* L, std::string taskName, bool essential)
    : TaskLooks{CConditions::Looks(owner.Engine().Conditions().LastRaise())},
      CWait(owner.Engine(), looks),
      scheduler(owner),
      thread(L),
      name(std::move(taskName)),
      isEssential(essential) {
}

Task::~Task() {
    scheduler.Forget(*this);
}

void Task::OnWoken() {
    if (status == Status::kWaiting) {
        scheduler.Queue(*this);
    }
}

const char* NameOf(Task::Status status) {
    switch (status) {
        case Task::Status::kReady:
            return "ready";
        case Task::Status::kRunning:
            return "running";
        case Task::Status::kWaiting:
            return "waiting";
        case Task::Status::kDone:
            return "done";
        case Task::Status::kFailed:
            return "failed";
        default:
            return "cancelled";
    }
}

std::string Describe(const CWait& wait) {
    std::string text;
    for (const Awaited& item : wait.Items()) {
        text += (text.empty() ? "" : ", ") + DescribeItem(item);
    }
    if (!wait.Until()) {
        return text.empty() ? "nothing" : text;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        *wait.Until() - CWaitEngine::Clock::now());
    return (text.empty() ? "" : text + ", ") + std::to_string(left.count()) + " ms more";
}

}  // namespace ZelkaCore
