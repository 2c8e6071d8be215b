#pragma once

#include <wx/string.h>

#include <system_error>

namespace ZelkaCore {

// Logs an error that the system gave: `what`, the number and its text, as the framework writes its
// own, "SetEvent() failed (error 9: Bad file descriptor)".
void LogSystemError(const std::error_code& error, const wxString& what);

}  // namespace ZelkaCore
