#include "apps/start/waiting_packages.h"

#include <wx/dir.h>
#include <wx/filefn.h>

#include "platform/move_file.h"
#include "platform/regkey.h"
#include "zelka_core/package/package_settlement.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

using ZelkaCore::ToUtf8;

namespace {

constexpr const char* kCorePackages = "Agent-*Core*";
constexpr const char* kNoAgentModeMarker = "/etc/brennix-bld";

}  // namespace

bool IsUpgradeFlagged() {
    wxRegKey software(wxRegKey::HKLM, "Software");
    return software.Open(wxRegKey::Read) && software.HasSubKey(kUpgradeFlag);
}

wxSortedArrayString ListCorePackages(const wxString& bin) {
    return ListFiles(bin, kCorePackages);
}

bool IsSkippedInAgentMode(const wxString& type) {
    return type == "VMWARE" && !wxFileExists(kNoAgentModeMarker);
}

wxSortedArrayString ListFiles(const wxString& folder, const wxString& pattern) {
    wxArrayString found;
    if (wxDir::Exists(folder)) {
        (void)wxDir::GetAllFiles(folder, &found, pattern, wxDIR_FILES);
    }
    return wxSortedArrayString(found);
}

std::vector<std::string> OwnPlaces(const ZelkaCore::CDom& dom, const wxString& bin) {
    const wxString work = dom.GetWxString("app.path.work");
    std::vector<std::string> places{ToUtf8(bin) + "/" + ZelkaCore::kPackagesLock,
                                    ToUtf8(bin) + "/" + ZelkaCore::kKeptFolder,
                                    ToUtf8(bin) + "/" + kPendingDeletesName};
    if (!work.empty()) {
        for (const char* own : {"", "/log", "/plugins/zelka_core", "/plugins/diag"}) {
            places.push_back(ToUtf8(work) + own);
        }
        places.push_back(ToUtf8(dom.GetWxString("app.path.ini")));
    }
    return places;
}
