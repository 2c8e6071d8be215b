// Where the program lies.

#include "apps/start/program_paths.h"

#include <wx/log.h>

#include "apps/zelka/zelka.h"
#include "platform/process_setup.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

namespace {

wxString ProgramPath() {
    std::string path;
    if (const auto error = GetModuleFileNameW(path)) {
        wxLogApiError("GetModuleFileName", static_cast<unsigned long>(error.value()));
    }
    return ZelkaCore::FromUtf8(path);
}

}  // namespace

void CAgentApp::PublishOwnPaths() {
    wxFileName bin(ProgramPath(), wxPATH_NATIVE);
    if (!bin.IsOk()) {
        bin.Assign(argv[0]);
        (void)bin.MakeAbsolute();
    }
    PublishProgramPaths(bin, *m_pDom);
}
