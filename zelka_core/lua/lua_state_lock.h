#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "zelka_core/mutex.h"

struct lua_State;

namespace ZelkaCore {

// The one lock of a Lua state. The thread that runs Lua holds it for as long as the virtual machine
// runs and gives it back while a script waits. Another thread that wants to look at the state hands
// over a piece of work: it runs at once if the state is free, and otherwise inside the running
// script, which looks for work every so often (ServeWork). While such work runs the state belongs
// to it alone: the garbage collector rests, so that no finaliser runs in the middle of it, and
// nothing that the work calls gives the lock back.
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

    // Gives the lock back for a scope, however often the thread holds it, while the Lua thread `L`
    // waits for something outside Lua. The thread has to hold it. Inside work it is kept.
    class GiveBack {
      public:
        GiveBack(CLuaStateLock& lock, lua_State* L)
            : m_lock(lock), m_outer(std::exchange(lock.m_waiting, L)), m_depth(lock.ReleaseAll()) {}
        ~GiveBack() {
            m_lock.AcquireAgain(m_depth);
            m_lock.m_waiting = m_outer;
        }
        GiveBack(const GiveBack&) = delete;
        GiveBack& operator=(const GiveBack&) = delete;

      private:
        CLuaStateLock& m_lock;
        lua_State* m_outer;
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
    [[nodiscard]] bool HasWork() const { return m_requested.load(std::memory_order_relaxed) != 0; }

    // Runs the work that waits. Called by the thread that holds the lock, inside the running
    // script. Nothing happens inside work.
    void ServeWork(lua_State* L) noexcept;

    // For the thread that holds the lock: whether it runs work, and the Lua thread for which the
    // lock was given back, null if none waits.
    [[nodiscard]] bool IsServing() const { return m_serving; }
    [[nodiscard]] lua_State* Waiting() const { return m_waiting; }

    // The thread that holds the lock, no id if none does. For any thread, and for a signal handler.
    [[nodiscard]] std::thread::id Owner() const { return m_owner.load(); }

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
    void RunWork(const Work& work, lua_State* L);

    lua_State* m_L = nullptr;  // constant once the lock is used

    // Touched by the thread that holds the lock.
    bool m_serving = false;
    lua_State* m_waiting = nullptr;

    Mutex m_mutex;
    CondVar m_changed;
    std::atomic<std::thread::id> m_owner;  // written under m_mutex
    static_assert(decltype(m_owner)::is_always_lock_free);
    unsigned m_depth ZELKA_GUARDED_BY(m_mutex) = 0;
    std::deque<std::shared_ptr<Request>> m_requests ZELKA_GUARDED_BY(m_mutex);
    std::atomic<std::size_t> m_requested = 0;  // the size of m_requests
};

}  // namespace ZelkaCore
