#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// A mutex whose use clang checks at compile time (-Wthread-safety): a member marked
// ZELKA_GUARDED_BY(m_mutex) can be touched only where the mutex is held.

#if defined(__clang__)
#define ZELKA_ATTRIBUTE(x) __attribute__((x))
#else
#define ZELKA_ATTRIBUTE(x)
#endif

#define ZELKA_GUARDED_BY(mutex) ZELKA_ATTRIBUTE(guarded_by(mutex))
#define ZELKA_REQUIRES(...) ZELKA_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ZELKA_EXCLUDES(...) ZELKA_ATTRIBUTE(locks_excluded(__VA_ARGS__))

namespace ZelkaCore {

class ZELKA_ATTRIBUTE(capability("mutex")) Mutex {
  public:
    void Lock() ZELKA_ATTRIBUTE(acquire_capability()) { m_mutex.lock(); }
    void Unlock() ZELKA_ATTRIBUTE(release_capability()) { m_mutex.unlock(); }

  private:
    friend class CondVar;
    std::mutex m_mutex;
};

class ZELKA_ATTRIBUTE(scoped_lockable) MutexLock {
  public:
    explicit MutexLock(Mutex& mutex) ZELKA_ATTRIBUTE(acquire_capability(mutex)) : m_mutex(mutex) {
        m_mutex.Lock();
    }
    ~MutexLock() ZELKA_ATTRIBUTE(release_capability()) { m_mutex.Unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    Mutex& m_mutex;
};

// Waiting for a change of what a mutex guards. A wait may end without one: look again.
class CondVar {
  public:
    using Clock = std::chrono::steady_clock;

    void Wait(Mutex& mutex) ZELKA_REQUIRES(mutex) {
        std::unique_lock lock(mutex.m_mutex, std::adopt_lock);
        m_condition.wait(lock);
        (void)lock.release();
    }

    // False if the deadline passed first.
    bool WaitUntil(Mutex& mutex, Clock::time_point deadline) ZELKA_REQUIRES(mutex) {
        std::unique_lock lock(mutex.m_mutex, std::adopt_lock);
        const bool inTime = m_condition.wait_until(lock, deadline) == std::cv_status::no_timeout;
        (void)lock.release();
        return inTime;
    }

    void NotifyAll() { m_condition.notify_all(); }

  private:
    std::condition_variable m_condition;
};

}  // namespace ZelkaCore
