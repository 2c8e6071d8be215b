#pragma once

#include <wx/string.h>

// The names under which an installation of the agent goes. The brand is that of the executable's
// name.
struct Identity {
    wxString name;            // of the Lua application's module
    wxString displayName;     // for log files
    wxString effectiveName;   // "zelk_agent" or "morv_agent": stem of the ini files
    wxString effectiveShort;  // "zelka" or "morva"
};

// The identity of an application called `name` under an executable whose name, without extension,
// is `executableStem`. Under a `morv...` executable a name with either brand's prefix gives a
// module name that begins with `zelk` and a display name that begins with `morv`. Prefixes count
// with case.
Identity ApplyBrandRule(const wxString& name, const wxString& executableStem);
