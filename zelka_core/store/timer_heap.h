#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

namespace ZelkaCore {

// Who wants to be told at some time, the earliest first. Adding and taking out cost the logarithm
// of their number. `Owner` has a member `std::size_t heapPlace`, which belongs to the heap, and is
// in one heap at a time.
template <class Owner>
class TimerHeap {
  public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

    [[nodiscard]] bool IsEmpty() const { return m_timers.empty(); }
    [[nodiscard]] Time FirstTime() const { return m_timers.front().time; }
    [[nodiscard]] Owner& First() const { return *m_timers.front().owner; }

    void Add(Owner& owner, Time time) {
        m_timers.push_back({time, &owner});
        Rise(m_timers.size() - 1);
    }

    // Nothing happens to one that is not there.
    void Remove(Owner& owner) {
        const std::size_t place = owner.heapPlace;
        if (place == kNowhere) {
            return;
        }
        owner.heapPlace = kNowhere;
        const Timer last = m_timers.back();
        m_timers.pop_back();
        if (place < m_timers.size()) {
            m_timers[place] = last;
            Sink(place);
            Rise(last.owner->heapPlace);
        }
    }

  private:
    struct Timer {
        Time time;
        Owner* owner;
    };

    void Put(std::size_t place, const Timer& timer) {
        m_timers[place] = timer;
        timer.owner->heapPlace = place;
    }

    void Rise(std::size_t place) {
        const Timer timer = m_timers[place];
        while (place > 0 && timer.time < m_timers[(place - 1) / 2].time) {
            Put(place, m_timers[(place - 1) / 2]);
            place = (place - 1) / 2;
        }
        Put(place, timer);
    }

    void Sink(std::size_t place) {
        const Timer timer = m_timers[place];
        for (std::size_t child = 2 * place + 1; child < m_timers.size(); child = 2 * place + 1) {
            if (child + 1 < m_timers.size() && m_timers[child + 1].time < m_timers[child].time) {
                ++child;
            }
            if (timer.time <= m_timers[child].time) {
                break;
            }
            Put(place, m_timers[child]);
            place = child;
        }
        Put(place, timer);
    }

    std::vector<Timer> m_timers;
};

}  // namespace ZelkaCore
