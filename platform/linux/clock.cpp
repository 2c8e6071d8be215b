#include "platform/clock.h"

#include <ctime>

std::uint64_t MillisecondsSinceBoot() {
    timespec now = {};
    (void)clock_gettime(CLOCK_BOOTTIME, &now);  // fails for an unknown clock only
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
}
