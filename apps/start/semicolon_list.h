#pragma once

#include <wx/string.h>

#include <list>

// Appends to `list` each run of characters in `text` that holds no ';', in order. Separators at
// either end and doubled ones yield nothing.
void SplitSemicolonList(std::list<wxString>& list, const wxString& text);
