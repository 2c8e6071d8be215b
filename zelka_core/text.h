#pragma once

#include <wx/string.h>

#include <string>

// Text inside the host is wxString; narrow strings are UTF-8 wherever they come from.

namespace ZelkaCore {

std::string ToUtf8(const wxString& text);

// Bytes that are not valid UTF-8 are taken as Latin-1, so that nothing is lost.
wxString FromUtf8(const std::string& text);

}  // namespace ZelkaCore
