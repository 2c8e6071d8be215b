#include "apps/zelka/plugins/package_round.h"

#include <wx/filefn.h>
#include <wx/filename.h>
#include <wx/log.h>

#include <system_error>
#include <utility>

#include "apps/start/waiting_packages.h"
#include "apps/zelka/version.h"
#include "platform/error.h"
#include "platform/service.h"
#include "zelka_core/archive/plugin_type.h"
#include "zelka_core/archive/shown_name.h"
#include "zelka_core/package/package_signature.h"
#include "zelka_core/store/agent_database.h"
#include "zelka_core/store/agent_event.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/system/clocks.h"
#include "zelka_core/text.h"

using ZelkaCore::FromUtf8;
using ZelkaCore::ShownName;
using ZelkaCore::ToUtf8;

namespace {

// Where a package is on its way to being deleted; if it stays there, it goes as a temporary file.
constexpr const char* kAsideName = ".zelka-unzip-removed";

// What this start is called where starts are counted; the service manager's word for it, if there
// is one, also names what it runs before the agent.
std::string NameOfStart() {
    std::string name = NameOfServiceStart();
    return name.empty() ? std::to_string(ZelkaCore::TimeNowMillis()) : name;
}

ZelkaCore::PackageHost HostOf(const ZelkaCore::CDom& dom) {
    const wxFileName program(dom.GetWxString("app.path.exe"));
    return {.name = kRequiredProgram,
            .version = ZELKA_VERSION,
            .program = {ToUtf8(program.GetFullName()), "lib/", "zelka_core/"},
            .start = NameOfStart()};
}

void Report(const std::vector<std::string>& notes) {
    for (const std::string& note : notes) {
        wxLogWarning("%s", FromUtf8(note));
    }
}

}  // namespace

PackageRound::PackageRound(ZelkaCore::CDom& dom)
    : m_folder(wxFileName(dom.GetWxString("app.path.bin"), wxString()).GetPath(wxPATH_GET_VOLUME)),
      m_workFolder(ToUtf8(dom.GetWxString("app.path.work"))),
      m_host(HostOf(dom)),
      m_trust(ZelkaCore::kTrustFolder),
      m_reserved(OwnPlaces(dom, m_folder)) {
    bool isTold = false;
    const auto wait = [&] {
        if (!std::exchange(isTold, true)) {
            wxLogWarning("Another agent works on the packages in %s: waiting for it", m_folder);
            ReportServiceProgress("waiting for another agent's packages");
        }
        ExtendServiceTimeout();
    };
    const auto error = m_lock.Take(ToUtf8(m_folder) + "/" + ZelkaCore::kPackagesLock, wait);
    if (error == std::errc::permission_denied || error == std::errc::read_only_file_system) {
        wxLogVerbose("No other agent is kept from the packages in %s: %s", m_folder,
                     FromUtf8(error.message()));
    } else if (error) {
        wxLogWarning("No other agent is kept from the packages in %s: %s", m_folder,
                     FromUtf8(error.message()));
    }
    if (const auto fault = m_tree.Open(ToUtf8(m_folder))) {
        wxLogError("%s cannot be opened: %s", m_folder, FromUtf8(fault.message()));
    }
    if (ZelkaCore::AgentDatabase* database = dom.Database()) {
        std::vector<std::string> notes;
        if (!m_settlement.emplace(*database).Open(ToUtf8(m_folder), notes)) {
            m_settlement.reset();
        }
        Report(notes);
    }
}

void PackageRound::Settle() {
    if (m_settlement) {
        std::vector<std::string> notes;
        (void)m_settlement->SettleChanges(notes);
        (void)m_settlement->SettleTrials(m_host.start, notes);
        Report(notes);
    }
}

bool PackageRound::HasTrials() {
    std::map<std::string, ZelkaCore::PackageTrial> trials;
    return m_settlement && m_settlement->Records().Trials(trials) && !trials.empty();
}

bool PackageRound::Unpack(const wxFileName& package, ZelkaCore::UnzipCallback callback,
                          void* userData) {
    if (!Admit(package)) {
        return false;
    }
    if (!m_settlement) {
        return Walk(package, false, callback, userData, nullptr);
    }
    ZelkaCore::PackageInstallation installation(*m_settlement, m_host,
                                                ToUtf8(package.GetFullName()), m_signed.signer);
    const bool isUnpacked = Walk(package, false, callback, userData, &installation);
    std::vector<std::string> notes;
    const bool isInstalled = installation.Finish(isUnpacked, notes);
    Report(notes);
    return isInstalled;
}

bool PackageRound::Remove(const wxFileName& package, ZelkaCore::UnzipCallback callback,
                          void* userData) {
    if (!Admit(package)) {
        return false;
    }
    m_deleted.clear();
    ZelkaCore::PackageRemoval removal;
    const bool isDone = Walk(package, true, callback, userData, &removal);
    if (m_settlement && !m_settlement->Forget(m_deleted, isDone ? removal.Name() : "")) {
        return false;
    }
    return isDone;
}

bool PackageRound::Admit(const wxFileName& package) {
    m_signed = {};
    if (!m_trust.AsksForSignatures()) {
        return true;
    }
    std::string fault;
    if (!m_tree.IsOpen() ||
        !ZelkaCore::OpenSignedPackage(m_tree, ToUtf8(package.GetFullName()), m_workFolder, m_trust,
                                      &ExtendServiceTimeout, m_signed, fault)) {
        wxLogError("%s: %s", package.GetFullPath(), FromUtf8(fault));
        return false;
    }
    m_opened = m_signed.package;
    return true;
}

bool PackageRound::Walk(const wxFileName& package, bool removes, ZelkaCore::UnzipCallback callback,
                        void* userData, ZelkaCore::UnzipObserver* observer) {
    m_allDeleted = true;
    const ZelkaCore::UnzipOptions options{.removes = removes,
                                          .reserved = m_reserved,
                                          .progress = &ExtendServiceTimeout,
                                          .opened = &m_opened,
                                          .content = m_signed.content ? &m_signed.content : nullptr,
                                          .passedOver = ZelkaCore::kManifestName,
                                          .observer = observer};
    return m_tree.IsOpen() &&
           ZelkaCore::Unzip(package, wxFileName(m_folder, wxString()), callback, userData,
                            options) &&
           m_allDeleted;
}

void PackageRound::DeleteTarget(const wxString& target) {
    if (m_tree.HasManyOpen()) {
        m_tree.Forget();
    }
    wxString path;
    FolderTree::Kind kind{};
    std::string place;
    std::error_code error = target.StartsWith(m_folder + "/", &path)
                                ? m_tree.Look(ToUtf8(path), kind, place)
                                : std::make_error_code(std::errc::invalid_argument);
    const bool isBelowFile = error == std::errc::not_a_directory;
    if (!error) {
        error = m_tree.DeleteFile(ToUtf8(path));
    }
    if (!error) {
        m_deleted.push_back(place);
    }
    if (error && !isBelowFile && error != std::errc::is_a_directory) {
        m_allDeleted = false;
        wxLogSysError(error.value(), "File '%s' couldn't be removed", target);
    }
}

// A done package is not picked up again. The signature follows it: whoever is stopped between the
// two finds no package without one.
void PackageRound::MarkAsDone(const wxFileName& package) {
    const std::string name = ToUtf8(package.GetFullName());
    const std::string done = name + ".done";
    if (ReportLeft(package.GetFullPath(), m_tree.RenameIf(m_opened, name, done)) &&
        m_trust.AsksForSignatures()) {
        (void)ReportLeft(package.GetFullPath() + ZelkaCore::kSignatureEnding,
                         m_tree.RenameIf(m_signed.signature, name + ZelkaCore::kSignatureEnding,
                                         done + ZelkaCore::kSignatureEnding));
    }
}

void PackageRound::DeletePackage(const wxFileName& package) {
    const std::string name = ToUtf8(package.GetFullName());
    if (ReportLeft(package.GetFullPath(), m_tree.DeleteIf(m_opened, name, kAsideName)) &&
        m_trust.AsksForSignatures()) {
        (void)ReportLeft(
            package.GetFullPath() + ZelkaCore::kSignatureEnding,
            m_tree.DeleteIf(m_signed.signature, name + ZelkaCore::kSignatureEnding, kAsideName));
    }
}

// True if nothing is left.
bool PackageRound::ReportLeft(const wxString& path, std::error_code error) {
    if (error == PlatformError::kReplaced) {
        wxLogWarning("%s was replaced meanwhile: the new one waits for the next start", path);
    } else if (error) {
        wxLogSysError(error.value(), "Unable to delete %s", path);
    }
    return !error;
}

void DeleteFile(const wxString& path) {
    const bool isThere = wxFileName::Exists(path, wxFILE_EXISTS_ANY | wxFILE_EXISTS_NO_FOLLOW);
    if (isThere && !wxFileName::Exists(path, wxFILE_EXISTS_DIR | wxFILE_EXISTS_NO_FOLLOW)) {
        (void)wxRemoveFile(path);
    }
}

void ReportPackage(const wxString& verb, std::size_t number, std::size_t count,
                   const wxFileName& package) {
    const wxString text =
        wxString::Format("%s %zu of %zu: %s", verb, number, count, ShownName(package.GetName()));
    wxLogVerbose("%s", text);
    ReportServiceProgress(ZelkaCore::ToUtf8(text));
}

void BeginEvent(ZelkaCore::CAgentEvent& event, const wxFileName& package) {
    event.SetData(ShownName(wxString::Format("%s|%s|%s", ZelkaCore::GetPluginType(package),
                                             package.GetName(), package.GetFullPath())));
    event.SetJTime(ZelkaCore::TimeNowMillis());
    event.SetTime(static_cast<int>(event.GetJTime() / 1000));
}

void EndEvent(ZelkaCore::CAgentEvent& event, PackageOutcome outcome) {
    const bool good = outcome == PackageOutcome::kInstalled || outcome == PackageOutcome::kRemoved;
    event.SetEventCode(static_cast<int>(outcome));
    event.SetSeverity(ZelkaCore::CAgentEvent::ToSeverity(good ? wxLOG_Info : wxLOG_Warning));
}

bool IsPackageReadable(const wxFileName& package) {
    if (package.IsFileReadable()) {
        return true;
    }
    wxLogWarning("Plugin file '%s' isn't readable", package.GetFullPath());
    return false;
}

bool IsGone(const wxFileName& package) {
    return !wxFileName::Exists(package.GetFullPath(), wxFILE_EXISTS_ANY | wxFILE_EXISTS_NO_FOLLOW);
}
