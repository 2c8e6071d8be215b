#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <thread>

#include "zelka_core/mutex.h"

struct lua_State;

namespace ZelkaCore {

// The one lock of a Lua state. The thread that runs Lua holds it for as long as the virtual machine
// runs and gives it back while a script waits. Another thread that wants to look at the state hands
// over a piece of work: it runs at once if the state is free, and otherwise inside the running
// script, which looks for work every so often (ServeWork).
class CLuaStateLock {
  public:
    // Work on the state; the argument is the Lua thread to work on. Leaves its stack as it was.
    using Work = std::function<void(lua_State*)>;

    // Holds the lock for a scope; a thread that holds it already may hold it again.
    class Hold {
      public:
        explicit Hold(CLuaStateLock& lock) : m_lock(lock) { m_lock.Acquire(); }
        ~Hold() { m_lock.Release(); }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

      private:
        CLuaStateLock& m_lock;
    };

    // Gives the lock back for a scope, however often the thread holds it, while it waits for
    // something outside Lua. The thread has to hold it.
    class GiveBack {
      public:
        explicit GiveBack(CLuaStateLock& lock) : m_lock(lock), m_depth(lock.ReleaseAll()) {}
        ~GiveBack() { m_lock.AcquireAgain(m_depth); }
        GiveBack(const GiveBack&) = delete;
        GiveBack& operator=(const GiveBack&) = delete;

      private:
        CLuaStateLock& m_lock;
        unsigned m_depth;
    };

    // Names the main thread of the state. Before the lock is used.
    void SetState(lua_State* L) { m_L = L; }

    // Has `work` run on the state: on the calling thread with the state's main thread as soon as
    // the lock is free, or on the thread that holds it with the Lua thread that runs there. Waits
    // for that no longer than `patience`; then answers false, and the work runs when the script
    // next looks for it or gives the lock back. Not to be called by a thread that holds the lock.
    bool Run(Work work, std::chrono::milliseconds patience);

    // Whether work waits. Costs one load.
    [[nodiscard]] bool HasWork() const { return m_waiting.load(std::memory_order_relaxed) != 0; }

    // Runs the work that waits. Called by the thread that holds the lock, inside the running
    // script.
    void ServeWork(lua_State* L) noexcept;

  private:
    struct Request {
        Work work;
        bool done = false;  // guarded by m_mutex
    };

    void Acquire();
    void Release();
    unsigned ReleaseAll();
    void AcquireAgain(unsigned depth);
    std::shared_ptr<Request> TakeRequest();

    lua_State* m_L = nullptr;  // constant once the lock is used

    Mutex m_mutex;
    CondVar m_changed;
    std::thread::id m_owner ZELKA_GUARDED_BY(m_mutex);
    unsigned m_depth ZELKA_GUARDED_BY(m_mutex) = 0;
    std::deque<std::shared_ptr<Request>> m_requests ZELKA_GUARDED_BY(m_mutex);
    std::atomic<std::size_t> m_waiting = 0;  // the size of m_requests
};

}  // namespace ZelkaCore
