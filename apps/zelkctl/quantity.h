#pragma once

#include <cstdint>
#include <string>

// Numbers in the words that people read.

// Milliseconds in the two units that matter: "350 ms", "12 s", "3 h 5 min", "12 d".
std::string DurationText(std::int64_t milliseconds);

// Milliseconds since 1970 UTC, in the local time: "2026-01-31 12:00:00".
std::string TimeText(std::int64_t milliseconds);

// "512 B", "23.4 MiB".
std::string SizeText(std::int64_t bytes);
