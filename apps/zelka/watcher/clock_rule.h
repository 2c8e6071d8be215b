#pragma once

#include <cstdint>

// Whether a setting of the clock that is seen at tick `now` is reported, when the last one was
// reported at `lastReported`: not more than once in two seconds, counted from the last one that was
// reported. Ticks are milliseconds modulo 2 to the power of 32.
inline bool IsClockChangeReported(std::uint32_t now, std::uint32_t lastReported) {
    constexpr std::uint32_t kQuietMs = 2000;
    return now - lastReported >= kQuietMs;
}
