#include "apps/zelka/plugins/package_round.h"

#include <wx/dir.h>
#include <wx/filefn.h>
#include <wx/filename.h>
#include <wx/log.h>

#include "apps/zelka/plugins/plugin_type.h"
#include "platform/service.h"
#include "zelka_core/store/agent_event.h"
#include "zelka_core/system/clocks.h"
#include "zelka_core/text.h"

wxSortedArrayString ListFiles(const wxString& folder, const wxString& pattern) {
    wxArrayString found;
    if (wxDir::Exists(folder)) {
        (void)wxDir::GetAllFiles(folder, &found, pattern, wxDIR_FILES);
    }
    return wxSortedArrayString(found);
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
        wxString::Format("%s %zu of %zu: %s", verb, number, count, package.GetName());
    wxLogVerbose("%s", text);
    ReportServiceProgress(ZelkaCore::ToUtf8(text));
}

void BeginEvent(ZelkaCore::CAgentEvent& event, const wxFileName& package) {
    event.SetData(wxString::Format("%s|%s|%s", GetPluginType(package), package.GetName(),
                                   package.GetFullPath()));
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
