#include "apps/start/plugin_type.h"

#include <wx/filename.h>

wxString GetPluginType(const wxFileName& package) {
    const wxString name = package.GetName();
    const std::size_t first = name.find('-');
    if (first == wxString::npos) {
        return name;
    }
    const wxString rest = name.substr(first + 1);
    return rest.substr(0, rest.find('-'));
}
