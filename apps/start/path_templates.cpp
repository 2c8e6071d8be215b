#include "apps/start/path_templates.h"

#include <wx/tokenzr.h>

wxString ExpandPathTemplates(const wxString& list, const wxString& plugins) {
    if (plugins.empty()) {
        return list;
    }
    wxString result;
    wxStringTokenizer entries(list, ";");
    while (entries.HasMoreTokens()) {
        const wxString entry = entries.GetNextToken();
        wxStringTokenizer names(plugins, ",");
        while (names.HasMoreTokens()) {
            wxString expanded = entry;
            expanded.Replace("@", names.GetNextToken());
            if (!result.empty()) {
                result += ";";
            }
            result += expanded;
        }
    }
    return result;
}
