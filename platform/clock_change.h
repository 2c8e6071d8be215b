#pragma once

#include <functional>
#include <memory>
#include <system_error>

// The message that tells a frame that the system clock was set.
inline constexpr unsigned WM_TIMECHANGE = 30;

// Tells, as long as it lives, when the system clock is set: also when it is set to the time that it
// shows, and not when it is merely slewed. It costs nothing in between. For the main thread; made
// while the main loop runs, or about to, and destroyed before the loop object goes.
class ClockChangeWatch {
  public:
    // Begins to watch. `onChange` is called by the main loop, once for settings that come in quick
    // succession; it throws nothing.
    [[nodiscard]] static std::error_code Begin(std::function<void()> onChange,
                                               std::unique_ptr<ClockChangeWatch>& watch);

    virtual ~ClockChangeWatch() = default;
    ClockChangeWatch(const ClockChangeWatch&) = delete;
    ClockChangeWatch& operator=(const ClockChangeWatch&) = delete;

  protected:
    ClockChangeWatch() = default;
};
