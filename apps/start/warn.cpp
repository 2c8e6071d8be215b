#include "apps/start/warn.h"

#include <wx/log.h>

void WarnInLog(const wxString& text) {
    wxLogWarning("%s", text);
}
