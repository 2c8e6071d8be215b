// Behind the application's main: its tasks go on until the end of the run, and end in order.

#include <wx/log.h>

#include <chrono>
#include <optional>
#include <utility>

#include "apps/zelka/zelka.h"
#include "zelka_core/lua/lua_arguments.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/task_scheduler.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

using ZelkaCore::CLuaInterpreter;
using ZelkaCore::CLuaStateLock;
using ZelkaCore::CTaskScheduler;
using ZelkaCore::WaitResult;

namespace {

using Clock = CTaskScheduler::Clock;

constexpr int kEssentialFailed = 2;  // the exit code

// For what comes to its end only by the error that is raised in its code.
constexpr std::chrono::milliseconds kGrace{500};

struct HostWait {
    std::vector<ZelkaCore::Awaited> items;
    ZelkaCore::Deadline deadline;
    std::optional<WaitResult> result;
};

// In protected mode: all that can fail is inside.
int WaitProtected(lua_State* L) {
    return ZelkaCore::CallGuarded(L, [](lua_State* state) {
        auto& wait = *static_cast<HostWait*>(lua_touserdata(state, 1));
        CLuaInterpreter& lua = *CLuaInterpreter::Of(state);
        const ZelkaCore::LuaStretch::Scope stretch(lua.Stretch());
        wait.result = lua.SchedulerIfAny()->WaitHere(state, std::move(wait.items), wait.deadline);
        return 0;
    });
}

int CancelProtected(lua_State* L) {
    CLuaInterpreter::Of(L)->SchedulerIfAny()->CancelAll(L);
    return 0;
}

bool CallProtected(lua_State* L, lua_CFunction function, void* argument) {
    lua_pushcfunction(L, function);
    lua_pushlightuserdata(L, argument);
    if (lua_pcall(L, 1, 0, 0) == LUA_OK) {
        return true;
    }
    wxLogError("The tasks cannot be waited for: %s", ZelkaCore::FromUtf8(lua_tostring(L, -1)));
    lua_pop(L, 1);
    return false;
}

}  // namespace

WaitResult CAgentApp::WaitWithTasks(std::vector<ZelkaCore::Awaited> items,
                                    const ZelkaCore::Deadline& deadline) {
    const CLuaStateLock::Hold hold(m_pLua->Lock());
    HostWait wait{std::move(items), deadline, std::nullopt};
    (void)CallProtected(m_pLua->L(), WaitProtected, &wait);
    return wait.result.value_or(WaitResult{WaitResult::Kind::kFailed, 0,
                                           std::make_error_code(std::errc::not_enough_memory)});
}

void CAgentApp::RunTasks() {
    m_phase = RunPhase::kTasks;
    CTaskScheduler& scheduler = m_pLua->Scheduler(*m_pDom);
    if (scheduler.Living() != 0 && !m_pDom->StopRequested()) {
        (void)WaitWithTasks({ZelkaCore::AwaitedSignal{&scheduler.AllEnded(), {}}, "app.stop"},
                            std::nullopt);
    }
}

// Tasks see `app.stop` and have some time to end by themselves. Those that do not are cancelled and
// have as long again, to tidy up. What does not end then is left behind.
void CAgentApp::EndTasks() {
    m_phase = RunPhase::kStopping;
    CTaskScheduler& scheduler = m_pLua->Scheduler(*m_pDom);
    const auto patience = scheduler.Patience();
    scheduler.Close();
    if (scheduler.Living() == 0) {
        return;
    }
    m_pDom->RequestStop();
    const auto cancelAt = Clock::now() + patience;
    const auto endAt = cancelAt + patience;
    scheduler.SetEnd(endAt);
    const std::vector<ZelkaCore::Awaited> ended{
        ZelkaCore::AwaitedSignal{&scheduler.AllEnded(), {}}};
    (void)WaitWithTasks(ended, cancelAt);
    if (scheduler.Living() != 0) {
        const CLuaStateLock::Hold hold(m_pLua->Lock());
        (void)CallProtected(m_pLua->L(), CancelProtected, nullptr);
    }
    if (scheduler.Living() != 0) {
        (void)WaitWithTasks(ended, endAt + kGrace);
    }
    if (scheduler.Living() != 0) {
        wxLogWarning("%zu tasks do not end, and are left behind", scheduler.Living());
    }
}

int CAgentApp::ResultOfTasks() const {
    return m_pLua->SchedulerIfAny()->HasEssentialFailed() ? kEssentialFailed : 0;
}
