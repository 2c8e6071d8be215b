// Removes what the removal packages beside the program name: the entries of such an archive are the
// files to delete below the program's folder. Each package leaves an agent event.

#include <wx/filefn.h>
#include <wx/filename.h>
#include <wx/log.h>
#include <wx/zipstrm.h>

#include "apps/zelka/plugins/package_round.h"
#include "apps/zelka/zelka.h"
#include "platform/service.h"
#include "zelka_core/archive/unzip.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/store/agent_event.h"
#include "zelka_core/store/dom.h"

namespace {

bool WalkThrough(const wxFileName& package, const wxFileName& binDir,
                 ZelkaCore::UnzipCallback callback, void* userData) {
    if (!IsPackageReadable(package)) {
        return false;
    }
    const wxString path = package.GetFullPath();
    ZELKA_TRACE("Appl", "CAgentApp::UninstallOldPlugins", "Removing files from %s", path);
    if (!ZelkaCore::Unzip(package, binDir, callback, userData)) {
        return false;
    }
    ZELKA_TRACE("Appl", "CAgentApp::UninstallOldPlugins",
                "Successfully removed files for plugin '%s'. Deleting '%s'", package.GetName(),
                path);
    return true;
}

void DeletePackage(const wxFileName& package) {
    const wxString path = package.GetFullPath();
    if (wxRemove(path) != 0) {
        const unsigned long code = wxSysErrorCode();
        wxLogSysError(static_cast<long>(code), "Unable to delete %s", path);
    }
}

}  // namespace

void CAgentApp::UninstallOldPlugins() {
    ZelkaCore::CAgentEvent event;
    const wxFileName binDir(m_pDom->GetWxString("app.path.bin"), wxString());

    CheckOldWebServer();

    const wxSortedArrayString packages = ListFiles(binDir.GetPath(wxPATH_GET_VOLUME), "*.zku");
    for (std::size_t i = 0; i < packages.size(); ++i) {
        const wxFileName package(packages[i]);
        ReportPackage("removing", i + 1, packages.size(), package);
        RemovePackage(package, binDir, event);
    }
    if (!packages.empty()) {
        (void)m_pDom->Set("zelka.HeartbeatNow", true);
    }
}

void CAgentApp::RemovePackage(const wxFileName& package, const wxFileName& binDir,
                              ZelkaCore::CAgentEvent& event) {
    BeginEvent(event, package);
    const bool walked = WalkThrough(package, binDir, &CAgentApp::UninstallPluginZipCB, this);
    EndEvent(event, walked ? PackageOutcome::kRemoved : PackageOutcome::kNotRemoved);
    // Before the package goes, as with installation: no removal goes unreported.
    m_pDom->AgentEventWrite(event);
    if (walked) {
        DeletePackage(package);
    }
}

bool CAgentApp::UninstallPluginZipCB(void* userData, const wxZipEntry* entry,
                                     const wxString* target) {
    if (userData == nullptr) {
        return false;
    }
    if (entry == nullptr) {
        return true;
    }
    ExtendServiceTimeout();
    ZELKA_TRACE("Appl", "CAgentApp::UninstallPluginZipCB", "  removing: %s (%lu bytes)",
                entry->GetInternalName(),
                static_cast<unsigned long>(static_cast<std::uint32_t>(entry->GetSize())));
    DeleteFile(*target);
    return false;
}
