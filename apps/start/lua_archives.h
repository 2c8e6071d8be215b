#pragma once

#include <wx/string.h>

#include "apps/start/warn.h"

// Where the Lua archives of a run are looked for.
struct ArchiveSearch {
    wxString bin;          // the program's folder
    wxString application;  // its name
    wxString zipPath;      // value of the option zippath, expanded for the plug-ins
    wxString extDir;       // value of the option extdir
};

// The full paths of those that are there, separated by ';', in the order in which modules are
// looked for in them. Warns of what is named and is not there, and of what cannot be read.
wxString FindLuaArchives(const ArchiveSearch& search, const Warn& warn);
