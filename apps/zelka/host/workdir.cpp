// The working folder, where the instance keeps its data.

#include "apps/zelka/host/workdir.h"

#include <wx/cmdline.h>
#include <wx/confbase.h>
#include <wx/fileconf.h>
#include <wx/log.h>

#include <filesystem>
#include <system_error>

#include "apps/zelka/zelka.h"
#include "platform/regkey.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/system/secure_path.h"
#include "zelka_core/text.h"

namespace {

constexpr int kFolderMode = 0700;
constexpr const char* kRegistryName = "HK";    // begins the name of a registry value
constexpr const char* kGlobalFolder = "/etc";  // of the ini file for all instances

// Opens the key in which the value named by `value` lies. False if there is none.
bool OpenKeyOf(const wxFileName& value, wxRegKey& key) {
    if (value.GetDirCount() == 0) {
        return false;
    }
    const wxString& root = value.GetDirs()[0];
    for (std::size_t i = 0; i < wxRegKey::nStdKeys; ++i) {
        if (root.StartsWith(wxRegKey::GetStdKeyName(i)) ||
            root.StartsWith(wxRegKey::GetStdKeyShortName(i))) {
            key.SetName(value.GetPath(0, wxPATH_DOS));
            return key.Open(wxRegKey::Read);
        }
    }
    return false;
}

wxString WorkdirFromRegistry(const wxString& given, const wxString& fallback) {
    const wxFileName value(given, wxPATH_DOS);
    wxRegKey key;
    if (!OpenKeyOf(value, key)) {
        return fallback;
    }
    wxString workdir;
    if (!key.QueryValue(value.GetFullName(), workdir)) {
        wxLogWarning("Registry value '%s' doesn't exist. Using '%s' for workdir", given, fallback);
        return fallback;
    }
    return workdir;
}

// The folder that the path leads to: it is what has to be secured, not a link to it.
wxString BehindLinks(const wxString& path) {
    std::error_code error;
    const auto real = std::filesystem::canonical(ZelkaCore::ToUtf8(path), error);
    return error ? path : ZelkaCore::FromUtf8(real.string());
}

}  // namespace

wxString ResolveWorkdir(const wxString& given, const wxFileName& executable) {
    const wxString workdir = given.StartsWith(kRegistryName)
                                 ? WorkdirFromRegistry(given, executable.GetPath(wxPATH_GET_VOLUME))
                                 : given;
    const wxString expanded = wxExpandEnvVars(workdir);
    if (expanded.empty()) {
        return {};  // and not the current folder
    }
    wxFileName folder;
    folder.AssignDir(expanded);
    (void)folder.MakeAbsolute();
    return folder.GetPath(wxPATH_GET_VOLUME);
}

wxString DefaultWorkdir(const wxFileName& executable) {
    wxFileName folder = executable;
    (void)folder.AppendDir("work");
    (void)folder.MakeAbsolute();
    return folder.GetPath(wxPATH_GET_VOLUME);
}

bool CAgentApp::SettleWorkdir(const wxCmdLineParser& parser, const wxFileName& executable) {
    wxString given;
    const wxString workdir = parser.Found("workdir", &given) ? ResolveWorkdir(given, executable)
                                                             : DefaultWorkdir(executable);
    if (workdir.empty()) {
        wxLogError("The option workdir names no folder: '%s'", given);
        return false;
    }
    if (wxFileName::Exists(workdir) && !wxFileName::DirExists(workdir)) {
        wxLogError("The working folder '%s' is no folder", workdir);
        return false;
    }
    if (!wxFileName::DirExists(workdir)) {
        // Parents that are missing are made with the same mode.
        (void)wxFileName::Mkdir(workdir, kFolderMode, wxPATH_MKDIR_FULL);
    }
    const wxString folder = BehindLinks(workdir);
    if (!ZelkaCore::IsSecuredFileOrDirectory(folder)) {
        ZelkaCore::SecureFileOrDirectory(folder, false);
        if (given.StartsWith(kRegistryName) && workdir == executable.GetPath(wxPATH_GET_VOLUME)) {
            wxLogWarning("'%s' is the working folder and is closed to others now", folder);
        }
    }
    (void)m_pDom->SetWx("app.path.work", workdir);

    const wxString effective = m_pDom->GetWxString("app.name.effective");
    (void)m_pDom->SetWx("app.path.ini", wxFileName(workdir, effective, "ini").GetFullPath());
    (void)m_pDom->SetWx("app.path.ini.global",
                        wxFileName(kGlobalFolder, effective, "ini").GetFullPath());
    return true;
}
