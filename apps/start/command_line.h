#pragma once

#include <wx/string.h>

#include <vector>

#include "apps/start/brand.h"

class wxCmdLineParser;
class wxFileName;

namespace ZelkaCore {
class CDom;
}  // namespace ZelkaCore

// The options of a start, and what they say of identity, Lua search paths and variables.

// Adds the options, those aside that every program of the framework has.
void AddStartOptions(wxCmdLineParser& parser);

// The identity of the application under an executable; it is called `name` if no option says
// otherwise. The store gets the effective names.
Identity SettleIdentity(const wxCmdLineParser& parser, const wxString& name,
                        const wxFileName& executable, ZelkaCore::CDom& dom);

// Puts plug-ins and search paths into the store, and the list of Lua archives into `zipPath`, both
// expanded for the plug-ins. False if that list names something outside of the program's folder.
bool TakeLuaPaths(const wxCmdLineParser& parser, ZelkaCore::CDom& dom, wxString& zipPath);

// Sets the variables that the options name, and returns what is not of the form NAME=VALUE.
std::vector<wxString> TakeDomainVariables(const wxCmdLineParser& parser, ZelkaCore::CDom& dom);
