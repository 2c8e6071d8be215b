#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace crash {

// Converts UTF-8 into `target`, null-terminated, and returns the length without the null. Bytes
// that are not UTF-8 become U+FFFD; what exceeds the room is left out. Safe in a signal handler.
std::size_t ToUtf16(std::string_view utf8, std::span<char16_t> target);

}  // namespace crash
