#pragma once

#include <compare>
#include <string_view>

namespace ZelkaCore {

// Versions of packages, and their order, are Debian's (deb-version(7)):
// [EPOCH:]UPSTREAM[-REVISION].

// Whether the text is such a version: of at most 64 letters, digits and . + - ~ of ASCII, with a
// digit first; an epoch is a number of at most nine digits.
bool IsVersion(std::string_view text);

// Which of two versions comes first. Numbers in them count as numbers, letters come before other
// characters, and '~' comes before everything, also before the end: 1.0~rc1 < 1.0 < 1.0-1 < 1.0.1.
// "equal" are also versions such as 1.0 and 1.00.
std::weak_ordering CompareVersions(std::string_view a, std::string_view b);

}  // namespace ZelkaCore
