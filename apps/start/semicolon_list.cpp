#include "apps/start/semicolon_list.h"

#include <wx/tokenzr.h>

void SplitSemicolonList(std::list<wxString>& list, const wxString& text) {
    wxStringTokenizer entries(text, ";", wxTOKEN_STRTOK);
    while (entries.HasMoreTokens()) {
        list.push_back(entries.GetNextToken());
    }
}
