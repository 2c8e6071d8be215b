#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ZelkaCore {

// A record as it stands in the log: one line, or several of which all but the first begin with a
// tab. Whatever could act on a terminal or make the record read as something else is written out:
// control characters as `\x1b` or `\u0085`, the line separators U+2028 and U+2029 and the
// characters that override the direction of text as `\u202e`. Tabs and line ends stay. Takes and
// gives UTF-8.
std::string LogText(std::string_view record);

// The same, with nothing behind the line ends.
std::string PlainText(std::string_view text);

inline constexpr std::size_t kMaximumLogText = std::size_t{64} * 1024;  // bytes: 64 KiB

// A text that a script hands over, not larger than `limit` bytes: what is beyond is not there but
// counted, " ... (5 bytes more)".
std::string BoundedLogText(std::string_view text, std::size_t limit = kMaximumLogText);

}  // namespace ZelkaCore
