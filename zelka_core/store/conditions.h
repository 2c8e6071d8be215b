#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "zelka_core/mutex.h"

namespace ZelkaCore {

// Named signals. A condition is never made or removed: a name that was not raised yet is one that
// was raised zero times. Every operation may be called from any thread and never blocks for long.
class CConditions {
  public:
    class Listener;
    class Waiter;

    // Which raises somebody has seen. For one thread at a time.
    class Looks;

    // Counts one more raise and wakes every waiter for the name. Returns how many that were; each
    // is counted once until it waits again. A raise for good is news also to those who begin to
    // look later: it tells a state that the process does not leave again.
    unsigned int Raise(const std::string& name, bool forGood = false);

    // The number of the last raise, whatever its name: those who look from now on have seen it.
    [[nodiscard]] std::uint64_t LastRaise() const;

    // About how many bytes of memory the raised names take, those who look among them, and how many
    // one more would take: 0 if it was raised before.
    [[nodiscard]] std::size_t Size() const;
    [[nodiscard]] std::size_t SizeOfNew(const std::string& name) const;

  private:
    struct Condition {
        std::uint64_t lastRaise = 0;
        bool forGood = false;
        std::list<Waiter*> waiters;
    };
    // A node stays where it is, and as long as it was raised or somebody waits for it.
    using Conditions = std::unordered_map<std::string, Condition>;

    mutable Mutex m_mutex;
    Conditions m_conditions ZELKA_GUARDED_BY(m_mutex);
    std::uint64_t m_lastRaise ZELKA_GUARDED_BY(m_mutex) = 0;
    std::size_t m_size ZELKA_GUARDED_BY(m_mutex) = 0;
};

class CConditions::Looks {
  public:
    // Everything up to the raise of that number was seen.
    explicit Looks(std::uint64_t since) : m_since(since) {}

  private:
    friend class Waiter;

    const std::uint64_t m_since;
    std::map<std::string, std::uint64_t> m_seen;  // by name, where it is later
};

// The thread that serves a number of waiters.
class CConditions::Listener {
  public:
    // `wake` is called, by any thread and with a lock held, when the thread sleeps and one of its
    // waiters was woken; it does not block. `conditions` has to outlive the listener.
    Listener(CConditions& conditions, std::function<void()> wake)
        : m_conditions(conditions), m_wake(std::move(wake)) {}
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // Takes the waiters that were woken since the last call. The thread does not sleep any more.
    void TakeWoken(std::vector<Waiter*>& woken);

    // Whether the thread may go to sleep: nobody was woken. From now on `wake` is called.
    [[nodiscard]] bool GoToSleep();

  private:
    friend class CConditions;
    friend class Waiter;

    // Constant after construction.
    CConditions& m_conditions;
    const std::function<void()> m_wake;

    // Guarded by the mutex of the conditions.
    std::vector<Waiter*> m_woken;
    bool m_sleeps = false;
};

// One who waits for any of some conditions. For its listener's thread.
class CConditions::Waiter {
  public:
    explicit Waiter(Listener& listener) : m_listener(listener) {}
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    // Waits for one more name, in the order of the calls, or for none any more.
    void AwaitCondition(const std::string& name);
    void AwaitNoCondition();

    // Whether the condition of that place in the order was raised after `looks` had last seen it.
    // It has seen it then. The waiter can be woken again.
    bool SeesRaise(std::size_t place, Looks& looks);

  protected:
    ~Waiter() { AwaitNoCondition(); }

  private:
    friend class CConditions;

    struct Entry {
        Conditions::value_type* condition;
        std::list<Waiter*>::iterator place;
    };

    Listener& m_listener;  // constant after construction
    std::vector<Entry> m_entries;
    bool m_woken = false;  // guarded by the mutex of the conditions
};

}  // namespace ZelkaCore
