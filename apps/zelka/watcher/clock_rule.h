#pragma once

#include <cstdint>

// Whether a setting of the clock that is seen at tick `now` is told, when the last one was told at
// `lastTold`: not more than once in two seconds, counted from the last one that was told. Ticks are
// milliseconds modulo 2 to the power of 32.
inline bool IsClockChangeTold(std::uint32_t now, std::uint32_t lastTold) {
    constexpr std::uint32_t kQuietMs = 2000;
    return now - lastTold >= kQuietMs;
}
