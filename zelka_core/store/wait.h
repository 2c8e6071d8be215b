#pragma once

#include <chrono>
#include <cstddef>
#include <list>
#include <optional>
#include <string>
#include <system_error>
#include <variant>
#include <vector>

#include "platform/events.h"
#include "zelka_core/store/conditions.h"
#include "zelka_core/store/timer_heap.h"

namespace ZelkaCore {

class CSignal;
class CWaitEngine;
class CWait;

using Deadline = std::optional<std::chrono::steady_clock::time_point>;

// A descriptor to wait for. It also counts as ready when its own deadline has passed.
struct AwaitedDescriptor {
    int descriptor;   // below 0: there is none, only the deadline
    unsigned events;  // Poller::Events
    Deadline deadline;
    bool isReady = false;
};

struct AwaitedSignal {
    CSignal* signal;  // null once it has fired, or is gone
    std::list<CWait*>::iterator place{};
};

// Something to wait for: a condition's name, an event, a descriptor, a signal.
using Awaited = std::variant<std::string, EventPtr, AwaitedDescriptor, AwaitedSignal>;

struct WaitResult {
    enum class Kind { kFired, kTimeout, kFailed } kind;
    std::size_t index = 0;       // of what fired, or of what cannot be waited for
    std::error_code error = {};  // why; EBADF: the descriptor is not open
};

// One wait for any of several things. For the thread of its engine. It may be used again and again.
class CWait : public CConditions::Waiter {
  public:
    // `looks` tells which raises of conditions are news, and outlives the wait.
    CWait(CWaitEngine& engine, CConditions::Looks& looks);
    virtual ~CWait();

    // Begins to wait. Something may have fired already: Look tells.
    void Begin(std::vector<Awaited> items, const Deadline& deadline);

    // What the wait has come to, of several things the first in the list; the others keep their
    // signal. Nothing as long as it goes on. It is over with the first answer.
    std::optional<WaitResult> Look();

    // Ends the wait without a result.
    void End();

    // What is waited for; empty when nothing is, or only the time.
    [[nodiscard]] const std::vector<Awaited>& Items() const { return m_items; }
    [[nodiscard]] const Deadline& Until() const { return m_deadline; }

    std::size_t heapPlace = TimerHeap<CWait>::kNowhere;

  private:
    friend class CSignal;
    friend class CWaitEngine;

    // Something may have happened: Look at it. Called by the engine and by signals.
    virtual void OnWoken() = 0;

    // Whether it is certain that somebody looks once it was woken. Else a signal that wakes it
    // wakes the next one as well.
    [[nodiscard]] virtual bool IsSureToLook() const { return true; }

    void BeginItem(std::size_t index, bool isOver);
    std::optional<std::size_t> FirstFired();
    void AddTimer();

    CWaitEngine& m_engine;
    CConditions::Looks& m_looks;
    std::vector<Awaited> m_items;
    Deadline m_deadline;
    std::optional<WaitResult> m_failure;  // what Begin could not wait for
};

// A signal between those whom one engine serves, such as the takers and givers of a queue: it wakes
// who waits at this moment and is forgotten.
class CSignal {
  public:
    CSignal() = default;
    ~CSignal() { Fire(m_waits.size()); }
    CSignal(const CSignal&) = delete;
    CSignal& operator=(const CSignal&) = delete;

    // Wakes the first `count` of those who wait, in the order in which they came.
    void Fire(std::size_t count);

  private:
    friend class CWait;

    std::list<CWait*> m_waits;
};

}  // namespace ZelkaCore
