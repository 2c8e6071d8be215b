#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <variant>
#include <vector>

#include "platform/events.h"
#include "zelka_core/mutex.h"

namespace ZelkaCore {

class CConditionObserver;

// Named signals. A condition is never made or removed: a name that was not raised yet is one that
// was raised zero times. Every operation may be called from any thread and never blocks for long.
class CConditions {
  public:
    // Counts one more raise and wakes every observer that waits for the name at this moment.
    // Returns how many that were; each is counted once until it waits again.
    unsigned int Raise(const std::string& name);

    // About how many bytes of memory the raised names take, an observer's among them, and how many
    // one more would take: 0 if it was raised before.
    [[nodiscard]] std::size_t Size() const;
    [[nodiscard]] std::size_t SizeOfNew(const std::string& name) const;

  private:
    friend class CConditionObserver;

    // An observer while it waits; in the list from construction to destruction.
    struct Waiter {
        Waiter(CConditions& owner, std::vector<std::string> awaited, HANDLE event);
        ~Waiter();
        Waiter(const Waiter&) = delete;
        Waiter& operator=(const Waiter&) = delete;

        // Constant after construction.
        CConditions& conditions;
        const std::vector<std::string> names;
        const HANDLE wake;

        bool woken = false;  // guarded by the mutex of `conditions`
    };

    // How often the name was raised.
    std::uint64_t Raises(const std::string& name) const ZELKA_REQUIRES(m_mutex);

    mutable Mutex m_mutex;
    std::map<std::string, std::uint64_t> m_raises ZELKA_GUARDED_BY(m_mutex);
    std::size_t m_size ZELKA_GUARDED_BY(m_mutex) = 0;
    std::vector<Waiter*> m_waiters ZELKA_GUARDED_BY(m_mutex);
};

// One who waits for conditions and events, and remembers what it has seen: a condition raised since
// the observer last returned it counts at once, so no raise is lost between two waits; several
// raises in between count as one. For one thread at a time.
class CConditionObserver {
  public:
    // A condition's name or an event's handle.
    using Item = std::variant<std::string, HANDLE>;

    struct Result {
        enum class Kind { kFired, kTimeout, kFailed } kind;
        std::size_t index;      // of the item that fired
        std::error_code error;  // why the wait failed; EBADF: a handle is not that of an open event
    };

    // `conditions` has to outlive the observer. Throws std::system_error without a descriptor left.
    explicit CConditionObserver(CConditions& conditions);

    // Waits for `timeoutMs` milliseconds at most (INFINITE: without limit) until one of the items
    // fires. Of several the first in the list is returned; the others keep their signal.
    // At most MAXIMUM_WAIT_OBJECTS - 1 of the items may be handles.
    Result Wait(const std::vector<Item>& items, DWORD timeoutMs);

  private:
    using Deadline = std::optional<CondVar::Clock::time_point>;

    Result WaitUntil(const std::vector<Item>& items, const Deadline& deadline);
    std::optional<std::size_t> FirstRaised(const std::vector<Item>& items);
    std::uint64_t Seen(const std::string& name) const;
    Result WaitForHandles(const std::vector<Item>& items, std::size_t count, DWORD timeoutMs);

    // Constant after construction.
    CConditions& m_conditions;
    ScopedHandle m_wake;

    std::map<std::string, std::uint64_t> m_seen;
};

}  // namespace ZelkaCore
