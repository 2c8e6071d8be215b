#pragma once

#include <wx/string.h>

#include <string>
#include <string_view>

// Text inside the host is wxString; narrow strings are UTF-8 wherever they come from.

namespace ZelkaCore {

// True for well-formed UTF-8 as RFC 3629 has it: shortest form, no surrogates, nothing above
// U+10FFFF.
bool IsValidUtf8(std::string_view bytes);

// The text without the part of a character that a cut has left at its end.
std::string_view WholeCharacters(std::string_view text);

std::string ToUtf8(const wxString& text);

// Bytes that are not valid UTF-8 are taken as Latin-1, so that nothing is lost.
wxString FromUtf8(const std::string& text);

}  // namespace ZelkaCore
