#pragma once

#include <wx/string.h>

// Expands a search path for a list of plug-ins. `list` is separated by ';', `plugins` by ','. Every
// entry of the list is repeated for every plug-in, list entries outermost, with each '@' replaced
// by the plug-in's name: `a/@.lua;b` and `x,y` give `a/x.lua;a/y.lua;b;b`. Without plug-ins the
// list stays as it is.
wxString ExpandPathTemplates(const wxString& list, const wxString& plugins);
