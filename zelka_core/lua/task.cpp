#include "zelka_core/lua/task.h"

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

constexpr const char* kClass = "ZelkaCore.task";

using Handle = std::optional<Task>;

int Collect(lua_State* L) {
    if (auto* handle = static_cast<Handle*>(luaL_testudata(L, 1, kClass))) {
        handle->reset();
    }
    return 0;
}

}  // namespace

Task& Task::Make(lua_State* L, CTaskScheduler& scheduler, lua_State* thread,
                 const std::string& name, bool essential) {
    auto* handle = new (lua_newuserdata(L, sizeof(Handle))) Handle;
    handle->emplace(scheduler, thread, name, essential);
    luaL_setmetatable(L, kClass);
    return **handle;
}

Task* Task::At(lua_State* L, int index) {
    auto* handle = static_cast<Handle*>(luaL_testudata(L, index, kClass));
    return handle != nullptr && handle->has_value() ? &**handle : nullptr;
}

void Task::RegisterClass(lua_State* L) {
    lua_pushcfunction(L, Collect);
    lua_setfield(L, -2, "__gc");
    lua_setfield(L, LUA_REGISTRYINDEX, kClass);
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
