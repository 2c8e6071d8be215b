// How a task waits: it gives way through all the Lua threads that it is in, and comes back.

#include <wx/log.h>

#include <algorithm>
#include <utility>

#include "zelka_core/log/trace.h"
#include "zelka_core/lua/lua_hook.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/task_scheduler.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

int YieldNothing(lua_State* L) {
    return lua_yield(L, 0);
}

}  // namespace

WaitResult CTaskScheduler::WaitInTask(lua_State* L, std::vector<Awaited> items,
                                      const Deadline& deadline, lua_CFunction continuation) {
    Task& task = *m_current;
    task.Begin(std::move(items), deadline);
    GiveWay(L, continuation);
    return TakeResult(L);
}

// Returns only if that is not possible: a native function in between cannot be left. Lua tells it
// by an error, which the protected call catches; where it is possible, the call is left for good
// and `continuation` goes on in its place.
void CTaskScheduler::GiveWay(lua_State* L, lua_CFunction continuation) {
    m_givesWay = true;
    lua_pushcfunction(L, YieldNothing);
    (void)lua_pcallk(L, 0, 0, 0, 0, continuation);
    m_givesWay = false;
    lua_pop(L, 1);
    if (!std::exchange(m_blockTold, true)) {
        luaL_where(L, 1);
        ZELKA_TRACE("Appl", "CTaskScheduler::GiveWay",
                    "%sa wait in a place that cannot be left holds all tasks up",
                    wxString::FromUTF8(lua_tostring(L, -1)));
        lua_pop(L, 1);
    }
    m_current->result = Block(L, *m_current);
}

void CTaskScheduler::RaiseIfCancelled(lua_State* L) const {
    if (m_current != nullptr && m_current->isCancelled) {
        lua_pushliteral(L, "cancelled");
        lua_error(L);
    }
}

WaitResult CTaskScheduler::TakeResult(lua_State* L) {
    RaiseIfCancelled(L);
    return std::exchange(m_current->result, std::nullopt)
        .value_or(WaitResult{WaitResult::Kind::kTimeout});
}

bool CTaskScheduler::TakeGivesWay(lua_State* L, lua_State* thread) {
    if (!std::exchange(m_givesWay, false)) {
        return false;
    }
    m_current->parked.push_back(thread);
    PushTasks(L);
    lua_pushthread(thread);
    lua_xmove(thread, L, 1);
    lua_pushboolean(L, 1);
    lua_rawset(L, -3);
    lua_pop(L, 1);
    return true;
}

void CTaskScheduler::EnterCoroutine(lua_State* L, lua_State* thread) {
    if (m_innermost == L) {
        m_innermost = thread;
    }
}

void CTaskScheduler::LeaveCoroutine(lua_State* L, lua_State* thread) {
    if (m_innermost == thread) {
        m_innermost = L;
    }
}

void CTaskScheduler::TakeBack(lua_State* L, lua_State* thread) {
    std::erase(m_current->parked, thread);
    PushTasks(L);
    lua_pushthread(thread);
    lua_xmove(thread, L, 1);
    lua_pushnil(L);
    lua_rawset(L, -3);
    lua_pop(L, 1);
}

bool CTaskScheduler::IsParked(lua_State* L, lua_State* thread) const {
    if (m_living == 0 || !lua_checkstack(L, 4) || !lua_checkstack(thread, 1)) {
        return false;
    }
    PushTasks(L);
    lua_pushthread(thread);
    lua_xmove(thread, L, 1);
    lua_rawget(L, -2);
    const bool isParked = !lua_isnil(L, -1);
    lua_pop(L, 2);
    return isParked;
}

void CTaskScheduler::SetEnd(Clock::time_point cancelAt, Clock::time_point endAt) {
    m_end = End{cancelAt, endAt};
}

void CTaskScheduler::OnLook(lua_State* L) {
    if (!m_end || m_current == nullptr) {
        return;
    }
    const auto now = Clock::now();
    if (now < m_end->cancelAt) {
        return;
    }
    const bool isNews = !std::exchange(m_current->isCancelled, true);
    if (now < m_end->endAt) {
        return;
    }
    if (!isNews && !std::exchange(m_current->isEnded, true)) {
        wxLogWarning("Task '%s' does not end by itself, and is ended", FromUtf8(m_current->name));
    }
    LookAtEachInstruction(L);  // so that the error meets also what catches errors in a loop
    luaL_error(L, "the task does not end by itself");
}

}  // namespace ZelkaCore
