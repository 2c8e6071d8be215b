// What is done about companions before packages replace their files: they are stopped, and the
// executable of one that would not stop is moved out of the way.

#include "apps/zelka/companions/locked_files.h"

#include <wx/filename.h>
#include <wx/log.h>

#include "apps/zelka/zelka.h"
#include "platform/move_file.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

using ZelkaCore::ToUtf8;

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
    auto error = MoveFileExW(ToUtf8(path), ToUtf8(oldPath), MOVEFILE_REPLACE_EXISTING);
    if (error) {
        wxLogWarning("Unable to rename %s to %s. GetLastError(%d).", path, oldPath, error.value());
        return false;
    }
    error = MoveFileExW(ToUtf8(oldPath), "", MOVEFILE_DELAY_UNTIL_REBOOT);
    if (error) {
        wxLogWarning("Unable to delete %s when system restart. GetLastError(%d).", oldPath,
                     error.value());
    }
    return true;
}

void DeleteFilesMovedAside(const wxString& folder) {
    std::string bootId;
    (void)CurrentBootId(bootId);  // without one nothing is deleted, which is told below
    for (const std::string& problem : DeletePendingFiles(ToUtf8(folder), bootId)) {
        wxLogWarning("%s", ZelkaCore::FromUtf8(problem));
    }
}
