#include "zelka_core/lua/lua_state_lock.h"

#include <algorithm>
#include <lua.hpp>

namespace ZelkaCore {

void CLuaStateLock::Acquire() {
    const MutexLock lock(m_mutex);
    const auto self = std::this_thread::get_id();
    while (m_depth != 0 && m_owner != self) {
        m_changed.Wait(m_mutex);
    }
    m_owner = self;
    ++m_depth;
}

void CLuaStateLock::Release() {
    ServeWork(m_L);
    const MutexLock lock(m_mutex);
    if (--m_depth == 0) {
        m_owner = std::thread::id();
        m_changed.NotifyAll();
    }
}

unsigned CLuaStateLock::ReleaseAll() {
    if (m_serving) {
        return 0;
    }
    ServeWork(m_L);
    const MutexLock lock(m_mutex);
    m_owner = std::thread::id();
    m_changed.NotifyAll();
    return std::exchange(m_depth, 0);
}

void CLuaStateLock::AcquireAgain(unsigned depth) {
    if (depth == 0) {
        return;  // nothing was released
    }
    const MutexLock lock(m_mutex);
    while (m_depth != 0) {
        m_changed.Wait(m_mutex);
    }
    m_owner = std::this_thread::get_id();
    m_depth = depth;
}

bool CLuaStateLock::Run(Work work, std::chrono::milliseconds patience) {
    const auto deadline = CondVar::Clock::now() + patience;
    auto request = std::make_shared<Request>(Request{std::move(work)});
    {
        const MutexLock lock(m_mutex);
        m_requests.push_back(request);
        m_requested = m_requests.size();
        while (m_depth != 0 && !request->done) {
            if (!m_changed.WaitUntil(m_mutex, deadline) && !request->done && m_depth != 0) {
                return false;
            }
        }
        if (request->done) {
            return true;
        }
        m_owner = std::this_thread::get_id();
        m_depth = 1;
    }
    Release();
    return true;
}

void CLuaStateLock::ServeWork(lua_State* L) noexcept {
    while (!m_serving && HasWork()) {
        const auto request = TakeRequest();
        if (!request) {
            return;
        }
        RunWork(request->work, L);
        const MutexLock lock(m_mutex);
        request->done = true;
        m_changed.NotifyAll();
    }
}

void CLuaStateLock::RunWork(const Work& work, lua_State* L) {
    const bool collects = lua_gc(L, LUA_GCISRUNNING, 0) != 0;
    if (collects) {
        lua_gc(L, LUA_GCSTOP, 0);
    }
    m_serving = true;
    work(L);
    m_serving = false;
    if (collects) {
        lua_gc(L, LUA_GCRESTART, 0);
    }
}

std::shared_ptr<CLuaStateLock::Request> CLuaStateLock::TakeRequest() {
    const MutexLock lock(m_mutex);
    if (m_requests.empty()) {
        return nullptr;
    }
    auto request = std::move(m_requests.front());
    m_requests.pop_front();
    m_requested = m_requests.size();
    return request;
}

}  // namespace ZelkaCore
