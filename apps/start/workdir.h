#pragma once

#include <wx/filename.h>

#include "apps/start/warn.h"

class wxCmdLineParser;

namespace ZelkaCore {
class CDom;
}  // namespace ZelkaCore

// The working folder, where an instance keeps its data: which it is, with nothing made or changed.

struct Workdir {
    wxString given;                // value of the option workdir
    wxString folder;               // absolute and without a trailing separator; need not exist
    wxString problem;              // why it cannot be used; empty: it can
    bool isStandIn = false;        // the program's own, as there is no such registry value
    std::size_t registryLine = 0;  // on which there is one; 0: none
};

// The folder that the option asks for: a folder, with environment variables to expand and relative
// to the current folder, or, if it begins with HK, the name of a registry value that holds one:
// `HKLM\SOFTWARE\Orvane\Agent\WorkDir`. A name without a key, or whose key is not there, gives the
// folder of `executable`; so does a missing value, with a warning. Without the option it is `work`
// beside the executable.
Workdir ChooseWorkdir(const wxCmdLineParser& parser, const wxFileName& executable,
                      const Warn& warn);

// Whether the folder was to come from the registry.
bool IsFromRegistry(const Workdir& workdir);

// Puts the folder and the places of the ini files into the store, whose effective names are there.
void PublishWorkdir(const wxString& folder, ZelkaCore::CDom& dom);
