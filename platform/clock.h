#pragma once

#include <cstdint>

// Milliseconds since the system started, time asleep included. No setting of the clock moves it.
std::uint64_t MillisecondsSinceBoot();
