#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <utility>

namespace ZelkaCore {

// How long Lua code has run without waiting. Begun and ended by the thread that runs it, asked by
// any thread.
class LuaStretch {
  public:
    using Clock = std::chrono::steady_clock;

    // A stretch for a scope. One inside another ends nothing.
    class Scope {
      public:
        explicit Scope(LuaStretch& stretch) : m_stretch(stretch), m_depth(stretch.m_depth++) {
            if (m_depth == 0) {
                (void)m_stretch.Begin();
            }
        }
        ~Scope() {
            --m_stretch.m_depth;
            if (m_depth == 0) {
                m_stretch.End();
            }
        }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

      private:
        LuaStretch& m_stretch;
        const unsigned m_depth;
    };

    // Returns the time.
    Clock::time_point Begin() {
        const auto now = Clock::now();
        m_since.store(now.time_since_epoch().count(), kOrder);
        return now;
    }
    void End() { m_since.store(0, kOrder); }

    // When the stretch that goes on has begun: one number, as another one begins at another time. 0
    // if none goes on.
    [[nodiscard]] Clock::rep Since() const { return m_since.load(kOrder); }

    [[nodiscard]] Clock::time_point Begun() const {
        return Clock::time_point(Clock::duration(Since()));
    }

    // Its length so far; 0 if none goes on.
    [[nodiscard]] Clock::duration Length() const {
        const Clock::rep since = Since();
        return since == 0 ? Clock::duration()
                          : Clock::now().time_since_epoch() - Clock::duration(since);
    }

  private:
    static constexpr auto kOrder = std::memory_order_relaxed;

    std::atomic<Clock::rep> m_since = 0;
    unsigned m_depth = 0;  // for the thread that runs Lua
};

}  // namespace ZelkaCore
