// Installs the packages that lie beside the program: what may not be installed is deleted, the rest
// is unpacked over the program's folder, and each package that was tried leaves an agent event.

#include <wx/filefn.h>
#include <wx/filename.h>
#include <wx/log.h>
#include <wx/zipstrm.h>

#include <utility>

#include "apps/start/relay_conflict.h"
#include "apps/start/waiting_packages.h"
#include "apps/zelka/plugins/package_round.h"
#include "apps/zelka/zelka.h"
#include "platform/regkey.h"
#include "platform/service.h"
#include "zelka_core/archive/plugin_type.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/store/agent_event.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

namespace {

void DeleteAll(const wxArrayString& files) {
    for (const wxString& file : files) {
        DeleteFile(file);
    }
}

void DeleteIfAny(const wxString& file) {
    if (!file.empty()) {
        DeleteFile(file);
    }
}

// The flag, a key of the registry, stops this one round: all packages go, and the flag with them.
// Without it only packages of the agent's own core go.
void DeleteUnwantedPackages(const wxString& bin) {
    if (!IsUpgradeFlagged()) {
        DeleteAll(ListCorePackages(bin));
        return;
    }
    wxLogWarning("UpgradeException flag exist, should remove downloaded plugins");
    for (const wxString& package : ListFiles(bin, kPackages)) {
        wxLogWarning("Delete plugin %s", package);
        DeleteFile(package);
    }
    (void)wxRegKey(wxRegKey::HKLM, "Software").DeleteKey(kUpgradeFlag);
}

// Lua archives of the kind of relay that this installation is not.
void DeleteArchivesOfOtherKind(const wxString& folder, const RelayPackages& relays) {
    for (const wxString& archive : ListFiles(folder, "*relay.zke*")) {
        if (IsArchiveOfOtherKind(wxFileName(archive).GetName(), relays)) {
            wxLogWarning("Deleting %s", archive);
            DeleteFile(archive);
        }
    }
}

}  // namespace

void CAgentApp::InstallNewPlugins() {
    ZelkaCore::CAgentEvent event;
    const wxString bin =
        wxFileName(m_pDom->GetWxString("app.path.bin"), wxString()).GetPath(wxPATH_GET_VOLUME);

    DeleteUnwantedPackages(bin);
    DeleteConflictingRelays(bin);

    bool anyReported = false;
    const wxSortedArrayString packages = ListFiles(bin, kPackages);
    for (std::size_t i = 0; i < packages.size(); ++i) {
        const wxFileName package(packages[i]);
        ReportPackage("installing", i + 1, packages.size(), package);
        anyReported = InstallPackage(package, event) || anyReported;
    }
    if (anyReported) {
        (void)m_pDom->Set("zelka.HeartbeatNow", true);
    }
}

void CAgentApp::DeleteConflictingRelays(const wxString& bin) {
    const RelayPackages relays = FindRelayPackages(ListFiles(bin, kPackages));
    if (AreInConflict(relays)) {
        wxLogWarning("Deleting %s and %s", relays.edgeRelay, relays.relay);
        DeleteFile(relays.edgeRelay);
        DeleteFile(relays.relay);
    }
    const wxFileName database(
        ZelkaCore::FromUtf8(m_pDom->GetPluginFile("zelka_core", "zelk_agent.db")));
    wxString version;
    if (database.FileExists() && m_pDom->SettingRetrieve(wxString(kNewVersionSetting), version)) {
        DeleteIfAny(relays.relay);
        DeleteIfAny(relays.edgeRelay);
    }
    if (!m_strExtDir.empty()) {
        DeleteArchivesOfOtherKind(m_strExtDir, relays);
    }
}

bool CAgentApp::InstallPackage(const wxFileName& package, ZelkaCore::CAgentEvent& event) {
    if (IsGone(package)) {
        return false;
    }
    const wxString type = ZelkaCore::GetPluginType(package);
    if (type == "RELAY") {
        MoveZombiesAside();
    }
    if (IsSkippedInAgentMode(type)) {
        wxLogVerbose("Skip to install vmware plugin in agent mode.");
        DeleteFile(package.GetFullPath());
        return false;
    }
    BeginEvent(event, package);
    const bool unpacked = Unpack(package);
    if (!unpacked && IsGone(package)) {
        return false;
    }
    EndEvent(event, unpacked ? PackageOutcome::kInstalled : PackageOutcome::kNotInstalled);
    // The event comes before the new name: whoever is stopped between the two finds the package
    // again at the next start, and no installation goes unreported.
    m_pDom->AgentEventWrite(event);
    if (unpacked) {
        m_pRound->MarkAsDone(package);
    }
    return true;
}

bool CAgentApp::Unpack(const wxFileName& package) {
    if (!IsPackageReadable(package)) {
        return false;
    }
    const wxString path = package.GetFullPath();
    ZELKA_TRACE("Appl", "CAgentApp::InstallNewPlugins", "Extracting files from %s", path);
    if (!m_pRound->Unpack(package, &CAgentApp::InstallPluginZipCB, this)) {
        return false;
    }
    ZELKA_TRACE("Appl", "CAgentApp::InstallNewPlugins",
                "Successfully extracted files for plugin '%s'. Deleting '%s'", package.GetName(),
                path);
    return true;
}

// The executables of companions that would not stop make room for those of the package.
void CAgentApp::MoveZombiesAside() {
    bool moved = false;
    if (std::exchange(m_bTarvokShutdownFailed, false)) {
        moved = RenameLockedFile("tarvok") || moved;
    }
    if (std::exchange(m_bNginxShutdownFailed, false)) {
        moved = RenameLockedFile("nginx") || moved;
    }
    if (moved) {
        wxLogError(
            "zombie process tarvok or nginx is detected, need reboot system to complete upgrade.");
    }
}

bool CAgentApp::InstallPluginZipCB(void* userData, const wxZipEntry* entry, const wxString*) {
    if (userData == nullptr) {
        return false;
    }
    if (entry != nullptr) {
        ExtendServiceTimeout();
        ZELKA_TRACE("Appl", "CAgentApp::InstallPluginZipCB", "  extracting: %s (%lu bytes)",
                    entry->GetInternalName(),
                    static_cast<unsigned long>(static_cast<std::uint32_t>(entry->GetSize())));
    }
    return true;
}
