#include "apps/zelka/host/start_failure.h"

#include <wx/log.h>

#include <cstdio>

#include "zelka_core/text.h"

void ReportFailedStart(const wxString& reason) {
    wxLogError("%s", reason);
    (void)std::fprintf(stderr, "%s\n", ZelkaCore::ToUtf8(reason).c_str());
}
