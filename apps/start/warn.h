#pragma once

#include <wx/string.h>

#include <functional>

// Takes what a start would warn of.
using Warn = std::function<void(const wxString& text)>;

// Warns in the log.
void WarnInLog(const wxString& text);
