#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <system_error>
#include <vector>

#include "platform/scoped_fd.h"

// Waits for many descriptors at once, at a cost that grows with those that are ready. For one
// thread at a time, but for Wake.
class Poller {
  public:
    using Clock = std::chrono::steady_clock;

    // What a descriptor is watched for. An error or the end of the other side counts as all of it.
    enum Events : unsigned { kReadable = 1, kWritable = 2, kUrgent = 4, kAll = 7 };

    // The same as the numbers of the system's own call poll.
    [[nodiscard]] static unsigned FromPoll(std::int64_t numbers);

    struct Ready {
        int descriptor;
        unsigned events;
    };

    // Before anything else.
    [[nodiscard]] std::error_code Open();

    // Has the descriptor told once, by one of the next calls of Wait, when any of the events holds;
    // in the place of what it was armed for before. EBADF if it is not open, EPERM if it is of a
    // kind that is always ready, such as a regular file. One that is closed is told no more.
    [[nodiscard]] std::error_code Arm(int descriptor, unsigned events);

    // Whether any of the events holds now.
    [[nodiscard]] static bool IsReady(int descriptor, unsigned events);

    // Waits until an armed descriptor is ready, Wake is called, or the deadline has passed; without
    // a deadline as long as it takes. Appends what is ready.
    [[nodiscard]] std::error_code Wait(const std::optional<Clock::time_point>& deadline,
                                       std::vector<Ready>& ready);

    // Ends a wait, the one under way or the next. From any thread.
    void Wake() const;

  private:
    ScopedFd m_epoll;
    ScopedFd m_wake;
};
