#pragma once

#include <cstdint>

// The two clocks of the host. Both may be read from any thread.

namespace ZelkaCore {

// Milliseconds since 1970-01-01 00:00 UTC. Follows every change of the system's clock.
std::int64_t TimeNowMillis();

// Milliseconds since the system started, time asleep included, modulo 2 to the power of 32. No
// change of the system's clock moves it; the difference of two readings is right across the wrap.
unsigned int SystemTickCount();

}  // namespace ZelkaCore
