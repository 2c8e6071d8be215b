#include "apps/zelka/plugins/package_round.h"

#include <wx/filefn.h>
#include <wx/filename.h>
#include <wx/log.h>

#include <system_error>
#include <utility>

#include "apps/start/plugin_type.h"
#include "apps/start/waiting_packages.h"
#include "platform/error.h"
#include "platform/service.h"
#include "zelka_core/archive/shown_name.h"
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

}  // namespace

PackageRound::PackageRound(ZelkaCore::CDom& dom)
    : m_folder(wxFileName(dom.GetWxString("app.path.bin"), wxString()).GetPath(wxPATH_GET_VOLUME)),
      m_reserved(OwnPlaces(dom, m_folder)) {
    bool isTold = false;
    const auto wait = [&] {
        if (!std::exchange(isTold, true)) {
            wxLogWarning("Another agent works on the packages in %s: waiting for it", m_folder);
            ReportServiceProgress("waiting for another agent's packages");
        }
        ExtendServiceTimeout();
    };
    const auto error = m_lock.Take(ToUtf8(m_folder) + "/" + kPackagesLock, wait);
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
}

bool PackageRound::Unpack(const wxFileName& package, ZelkaCore::UnzipCallback callback,
                          void* userData) {
    return Walk(package, false, callback, userData);
}

bool PackageRound::Remove(const wxFileName& package, ZelkaCore::UnzipCallback callback,
                          void* userData) {
    return Walk(package, true, callback, userData);
}

bool PackageRound::Walk(const wxFileName& package, bool removes, ZelkaCore::UnzipCallback callback,
                        void* userData) {
    m_allDeleted = true;
    const ZelkaCore::UnzipOptions options{.removes = removes,
                                          .reserved = m_reserved,
                                          .progress = &ExtendServiceTimeout,
                                          .opened = &m_opened};
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
    const auto error = target.StartsWith(m_folder + "/", &path)
                           ? m_tree.DeleteFile(ToUtf8(path))
                           : std::make_error_code(std::errc::invalid_argument);
    if (error && error != std::errc::is_a_directory) {
        m_allDeleted = false;
        wxLogSysError(error.value(), "File '%s' couldn't be removed", target);
    }
}

// A done package is not picked up again.
void PackageRound::MarkAsDone(const wxFileName& package) {
    const std::string name = ToUtf8(package.GetFullName());
    ReportLeft(package.GetFullPath(), m_tree.RenameIf(m_opened, name, name + ".done"));
}

void PackageRound::DeletePackage(const wxFileName& package) {
    ReportLeft(package.GetFullPath(),
               m_tree.DeleteIf(m_opened, ToUtf8(package.GetFullName()), kAsideName));
}

void PackageRound::ReportLeft(const wxString& path, std::error_code error) {
    if (error == PlatformError::kReplaced) {
        wxLogWarning("%s was replaced meanwhile: the new one waits for the next start", path);
    } else if (error) {
        wxLogSysError(error.value(), "Unable to delete %s", path);
    }
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
    event.SetData(ShownName(wxString::Format("%s|%s|%s", GetPluginType(package), package.GetName(),
                                             package.GetFullPath())));
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
