#pragma once

#include <functional>
#include <memory>
#include <system_error>

// The signals by which somebody at a console, or a process that started this one, asks it to end:
// SIGINT and SIGTERM.

// Keeps them for StopSignals, also those that come before it is there. While there is no other
// thread yet, as threads inherit the setting.
void HoldStopSignals();

// Tells, as long as it lives, of the first of them. A second one ends the process at once, as it
// ends any other. For the main thread; made while the main loop runs, or about to, and destroyed
// before the loop object goes.
class StopSignals {
  public:
    // `onStop` is called by the main loop, once; it throws nothing.
    [[nodiscard]] static std::error_code Begin(std::function<void()> onStop,
                                               std::unique_ptr<StopSignals>& signals);

    // The signals do again what they do to any other process.
    virtual ~StopSignals() = default;
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

  protected:
    StopSignals() = default;
};
