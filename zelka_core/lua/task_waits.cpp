// How a task waits: it gives way through all the Lua threads that it is in, and comes back.

#include <wx/log.h>

#include <algorithm>
#include <utility>

#include "zelka_core/log/trace.h"
#include "zelka_core/lua/lua_hook.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/task_scheduler.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

int YieldNothing(lua_State* L) {
    return lua_yield(L, 0);
}

// Whether nothing but a few Lua functions is between the running native function and the beginning
// of the Lua thread: then it can be left. Not in a finaliser, during which the collector rests, and
// not in a hook.
bool IsAllLua(lua_State* L) {
    constexpr int kFrames = 8;
    if (lua_gethook(L) != nullptr || lua_gc(L, LUA_GCISRUNNING, 0) == 0) {
        return false;
    }
    lua_Debug frame;
    for (int level = 1; lua_getstack(L, level, &frame) != 0; ++level) {
        lua_getinfo(L, "l", &frame);
        if (frame.currentline == -1 || level > kFrames) {
            return false;
        }
    }
    return true;
}

}  // namespace

// By a C++ exception, as Lua does it: each frame on its way costs, and one with an object that has
// to be destroyed as much as the rest. So where it is plain that it can be left, the call is left
// at once. Elsewhere Lua tells by an error whether a native function in between cannot be left, and
// a protected call catches it. In either case `continuation` goes on in the place of the call.
void CTaskScheduler::GiveWay(lua_State* L, lua_CFunction continuation) {
    m_givesWay = L;
    if (IsAllLua(L)) {
        (void)lua_yieldk(L, 0, 0, continuation);
    }
    lua_pushcfunction(L, YieldNothing);
    (void)lua_pcallk(L, 0, 0, 0, 0, continuation);
    BlockInstead(L);
}

void CTaskScheduler::BlockInstead(lua_State* L) {
    m_givesWay = nullptr;
    lua_pop(L, 1);
    m_current->result = BlockAll(L, *m_current);
}

WaitResult CTaskScheduler::BlockAll(lua_State* L, CWait& wait) {
    if (!std::exchange(m_blockTold, true)) {
        luaL_where(L, 1);
        ZELKA_TRACE("Appl", "CTaskScheduler::GiveWay",
                    "%sa wait in a place that cannot be left holds all tasks up",
                    FromUtf8(lua_tostring(L, -1)));
        lua_pop(L, 1);
    }
    return Block(L, wait);
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
    if (m_givesWay != thread) {
        return false;
    }
    m_givesWay = nullptr;
    m_current->parked.push_back(thread);
    lua_pushboolean(L, 1);
    SetTask(L, thread);
    return true;
}

void CTaskScheduler::EnterCoroutine(lua_State* L, lua_State* thread) {
    m_resumed.emplace_back(L, thread);
    if (m_innermost == L) {
        m_innermost = thread;
    }
}

void CTaskScheduler::LeaveCoroutine(lua_State* L, lua_State* thread) {
    if (!m_resumed.empty() && m_resumed.back().second == thread) {
        m_resumed.pop_back();
    }
    if (m_innermost == thread) {
        m_innermost = L;
    }
}

lua_State* CTaskScheduler::BaseOf(lua_State* L) const {
    for (auto link = m_resumed.rbegin(); link != m_resumed.rend() && link->second == L; ++link) {
        L = link->first;
    }
    return L;
}

void CTaskScheduler::TakeBack(lua_State* L, lua_State* thread) {
    std::erase(m_current->parked, thread);
    lua_pushnil(L);
    SetTask(L, thread);
}

bool CTaskScheduler::IsParked(lua_State* L, lua_State* thread) const {
    if (m_living == 0 || !lua_checkstack(L, 4) || !lua_checkstack(thread, 1)) {
        return false;
    }
    PushTask(L, thread);
    const bool isParked = !lua_isnil(L, -1);
    lua_pop(L, 1);
    return isParked;
}

std::chrono::milliseconds CTaskScheduler::Patience() const {
    constexpr unsigned long kDefault = 5000;
    constexpr unsigned long kMost = 3'600'000;
    unsigned long patience = 0;
    const bool isGiven = m_dom.GetWxString("app.stop.patience").ToULong(&patience);
    return std::chrono::milliseconds(isGiven ? std::min(patience, kMost) : kDefault);
}

void CTaskScheduler::OnLook(lua_State* L) {
    if (m_current == nullptr || !m_dom.StopRequested()) {
        return;
    }
    const auto now = Clock::now();
    if (!m_stop) {
        m_stop = Stop{now, Patience()};
    }
    const auto cancelAt =
        std::max(m_stop->seen, m_interpreter.Stretch().Begun()) + m_stop->patience;
    if (now < cancelAt && !m_current->isCancelled) {
        return;
    }
    m_current->isCancelled = true;
    if (now < std::min(cancelAt + m_stop->patience, m_endAt.value_or(Clock::time_point::max()))) {
        return;
    }
    if (!std::exchange(m_current->isEnded, true)) {
        wxLogWarning("Task '%s' does not end by itself, and is ended", FromUtf8(m_current->name));
    }
    LookAtEachInstruction(L);  // so that the error meets also what catches errors in a loop
    luaL_error(L, "the task does not end by itself");
}

}  // namespace ZelkaCore
