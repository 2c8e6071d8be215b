// The working folder is made where it is missing, and closed to others.

#include "apps/start/workdir.h"

#include <wx/log.h>

#include <filesystem>
#include <system_error>

#include "apps/zelka/zelka.h"
#include "zelka_core/system/secure_path.h"
#include "zelka_core/text.h"

namespace {

constexpr int kFolderMode = 0700;

// The folder that the path leads to: it is what has to be secured, not a link to it.
wxString BehindLinks(const wxString& path) {
    std::error_code error;
    const auto real = std::filesystem::canonical(ZelkaCore::ToUtf8(path), error);
    return error ? path : ZelkaCore::FromUtf8(real.string());
}

}  // namespace

bool CAgentApp::SettleWorkdir(const wxCmdLineParser& parser, const wxFileName& executable) {
    const Workdir workdir = ChooseWorkdir(parser, executable, WarnInLog);
    if (!workdir.problem.empty()) {
        wxLogError("%s", workdir.problem);
        return false;
    }
    if (!wxFileName::DirExists(workdir.folder)) {
        // Parents that are missing are made with the same mode.
        (void)wxFileName::Mkdir(workdir.folder, kFolderMode, wxPATH_MKDIR_FULL);
    }
    const wxString folder = BehindLinks(workdir.folder);
    if (!ZelkaCore::IsSecuredFileOrDirectory(folder)) {
        ZelkaCore::SecureFileOrDirectory(folder, false);
        if (IsFromRegistry(workdir) && workdir.folder == executable.GetPath(wxPATH_GET_VOLUME)) {
            wxLogWarning("'%s' is the working folder and is closed to others now", folder);
        }
    }
    PublishWorkdir(workdir.folder, *m_pDom);
    return true;
}
