// Where the program lies.

#include "apps/zelka/host/program_paths.h"

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

wxFileName MakerFolder(const wxFileName& bin) {
    wxFileName maker = bin;
    if (maker.GetDirCount() >= 2) {
        maker.RemoveLastDir();
        if (!maker.GetPath(wxPATH_GET_VOLUME).Contains(kMaker)) {
            maker = bin;
        }
    }
    return maker;
}

void CAgentApp::PublishProgramPaths() {
    wxFileName bin(ProgramPath(), wxPATH_NATIVE);
    if (!bin.IsOk()) {
        bin.Assign(argv[0]);
        (void)bin.MakeAbsolute();
    }
    wxFileName lib = bin;
    (void)lib.AppendDir("lib");
    (void)m_pDom->SetWx("app.path.exe", bin.GetFullPath());
    (void)m_pDom->SetWx("app.path.bin", bin.GetPath(wxPATH_GET_VOLUME));
    (void)m_pDom->SetWx("app.path.lib", lib.GetPath(wxPATH_GET_VOLUME));
    (void)m_pDom->SetWx("app.path.ov", MakerFolder(bin).GetPath(wxPATH_GET_VOLUME));
}
