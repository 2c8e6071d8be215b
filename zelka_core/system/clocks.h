#pragma once

#include <cstdint>

// The clocks of the host. All may be read from any thread.

namespace ZelkaCore {

// Milliseconds since 1970-01-01 00:00 UTC. Follows every change of the system's clock.
std::int64_t TimeNowMillis();

// The same with its fraction.
double TimeOfDayMillis();

// Milliseconds with their fraction since some moment, time asleep not included. No change of the
// system's clock moves it.
double MonotonicMillis();

// Milliseconds since the system started, time asleep included, modulo 2 to the power of 32. No
// change of the system's clock moves it; the difference of two readings is right across the wrap.
unsigned int SystemTickCount();

}  // namespace ZelkaCore
