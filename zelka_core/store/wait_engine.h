#pragma once

#include <unordered_map>
#include <vector>

#include "platform/poller.h"
#include "zelka_core/store/conditions.h"
#include "zelka_core/store/timer_heap.h"
#include "zelka_core/store/wait.h"

namespace ZelkaCore {

// Serves any number of waits of one thread; what it does costs as much as is ready, and not as much
// as waits. Conditions and events may be raised by any thread meanwhile.
class CWaitEngine {
  public:
    using Clock = std::chrono::steady_clock;

    // `conditions` has to outlive the engine. Throws std::system_error without a descriptor left.
    explicit CWaitEngine(CConditions& conditions);
    CWaitEngine(const CWaitEngine&) = delete;
    CWaitEngine& operator=(const CWaitEngine&) = delete;

    [[nodiscard]] CConditions& Conditions() { return m_conditions; }

    // Tells the waits for which something has happened (CWait::OnWoken), without waiting. What the
    // system has to be asked for, descriptors and events, is seen after a millisecond at the
    // latest.
    void Gather();

    // Waits until something happens to any of the waits, and tells it. Throws std::system_error if
    // the system refuses to wait.
    void Sleep();

    // Ends the sleep under way or the next one. Any thread.
    void Wake() const { m_poller.Wake(); }

  private:
    friend class CWait;

    // Who waits for a descriptor, once for each item.
    struct Watcher {
        CWait* wait;
        unsigned events;
    };

    // Has `wait` woken when any of the events holds. Fails as Poller::Arm.
    std::error_code Watch(CWait& wait, int descriptor, unsigned events);
    void Unwatch(const CWait& wait, int descriptor);
    // For a wait that was woken for an event whose signal somebody else has taken.
    void WatchEventsAgain(const CWait& wait);

    void Ask(const Deadline& deadline);
    void TellWoken();
    void TellReady(const Poller::Ready& ready);
    void TellTimers(Clock::time_point now);

    CConditions& m_conditions;  // constant after construction
    Poller m_poller;
    CConditions::Listener m_listener;

    TimerHeap<CWait> m_timers;
    std::unordered_map<int, std::vector<Watcher>> m_watched;
    Clock::time_point m_lastAsked;

    // Kept for their room.
    std::vector<Poller::Ready> m_ready;
    std::vector<CConditions::Waiter*> m_woken;
};

}  // namespace ZelkaCore
