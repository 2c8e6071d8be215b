// Removes what the removal packages beside the program name: the entries of such an archive are the
// files to delete below the program's folder. Each package leaves an agent event.

#include <wx/filefn.h>
#include <wx/filename.h>
#include <wx/log.h>
#include <wx/zipstrm.h>

#include "apps/start/waiting_packages.h"
#include "apps/zelka/plugins/package_round.h"
#include "apps/zelka/zelka.h"
#include "platform/service.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/store/agent_event.h"
#include "zelka_core/store/dom.h"

void CAgentApp::UninstallOldPlugins() {
    ZelkaCore::CAgentEvent event;
    const wxFileName binDir(m_pDom->GetWxString("app.path.bin"), wxString());

    CheckOldWebServer();

    const wxSortedArrayString packages = ListFiles(binDir.GetPath(wxPATH_GET_VOLUME), kRemovals);
    for (std::size_t i = 0; i < packages.size(); ++i) {
        const wxFileName package(packages[i]);
        ReportPackage("removing", i + 1, packages.size(), package);
        RemovePackage(package, event);
    }
    if (!packages.empty()) {
        (void)m_pDom->Set("zelka.HeartbeatNow", true);
    }
}

void CAgentApp::RemovePackage(const wxFileName& package, ZelkaCore::CAgentEvent& event) {
    if (IsGone(package)) {
        return;
    }
    BeginEvent(event, package);
    const bool walked = WalkThrough(package);
    if (!walked && IsGone(package)) {
        return;
    }
    EndEvent(event, walked ? PackageOutcome::kRemoved : PackageOutcome::kNotRemoved);
    // Before the package goes, as with installation: no removal goes unreported.
    m_pDom->AgentEventWrite(event);
    if (walked) {
        m_pRound->DeletePackage(package);
    }
}

bool CAgentApp::WalkThrough(const wxFileName& package) {
    if (!IsPackageReadable(package)) {
        return false;
    }
    const wxString path = package.GetFullPath();
    ZELKA_TRACE("Appl", "CAgentApp::UninstallOldPlugins", "Removing files from %s", path);
    if (!m_pRound->Remove(package, &CAgentApp::UninstallPluginZipCB, this)) {
        return false;
    }
    ZELKA_TRACE("Appl", "CAgentApp::UninstallOldPlugins",
                "Successfully removed files for plugin '%s'. Deleting '%s'", package.GetName(),
                path);
    return true;
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
    static_cast<CAgentApp*>(userData)->m_pRound->DeleteTarget(*target);
    return false;
}
