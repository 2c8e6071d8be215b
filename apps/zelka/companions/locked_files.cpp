// What is done about companions before packages replace their files: they are stopped, and the
// executable of one that would not stop is moved out of the way.

#include "apps/zelka/companions/locked_files.h"

#include <wx/filename.h>
#include <wx/log.h>

#include "apps/zelka/zelka.h"
#include "platform/move_file.h"
#include "zelka_core/text.h"

void CAgentApp::CheckOldWebServer() {
    const wxString binPrefix = m_pDom->GetWxString("app.path.bin").Lower();
    if (!ShutdownTarvok(binPrefix)) {
        m_bTarvokShutdownFailed = true;
        wxLogError("Shutdown tarvok fails");
    }
    if (!ShutdownNginx(binPrefix)) {
        m_bNginxShutdownFailed = true;
        wxLogError("Shutdown nginx fails");
    }
}

bool CAgentApp::RenameLockedFile(const wxString& name) {
    const wxFileName file(m_pDom->GetWxString("app.path.bin"), name, "exe");
    if (!file.FileExists()) {
        return false;
    }
    const wxString path = file.GetFullPath();
    const wxString oldPath = path + ".old";
    if (!MoveFileExW(path.wc_str(), oldPath.wc_str(), MOVEFILE_REPLACE_EXISTING)) {
        wxLogWarning("Unable to rename %s to %s. GetLastError(%d).", path, oldPath,
                     static_cast<int>(GetLastError()));
        return false;
    }
    if (!MoveFileExW(oldPath.wc_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT)) {
        wxLogWarning("Unable to delete %s when system restart. GetLastError(%d).", oldPath,
                     static_cast<int>(GetLastError()));
    }
    return true;
}

void DeleteFilesMovedAside(const wxString& folder) {
    for (const std::string& problem :
         DeletePendingFiles(ZelkaCore::ToUtf8(folder), CurrentBootId())) {
        wxLogWarning("%s", ZelkaCore::FromUtf8(problem));
    }
}
