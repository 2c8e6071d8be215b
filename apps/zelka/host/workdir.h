#pragma once

#include <wx/filename.h>

// The folder that the option workdir asks for, absolute and without a trailing separator. `given`
// is a folder, with environment variables to expand and relative to the current folder, or, if it
// begins with HK, the name of a registry value that holds one:
// `HKLM\SOFTWARE\Orvane\Agent\WorkDir`. A name without a key, or whose key is not there, gives the
// folder of `executable`; so does a missing value, with a warning. Empty if what is given, or what
// it stands for, is empty.
wxString ResolveWorkdir(const wxString& given, const wxFileName& executable);

// The folder for a process without that option: `work` beside the executable.
wxString DefaultWorkdir(const wxFileName& executable);
