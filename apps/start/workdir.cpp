#include "apps/start/workdir.h"

#include <wx/cmdline.h>
#include <wx/confbase.h>

#include "platform/regkey.h"
#include "zelka_core/store/dom.h"

namespace {

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

// What the value holds, or the stand-in.
wxString ReadFromRegistry(Workdir& workdir, const wxString& standIn, const Warn& warn) {
    const wxFileName value(workdir.given, wxPATH_DOS);
    wxRegKey key;
    wxString named = standIn;
    workdir.isStandIn = true;
    if (!OpenKeyOf(value, key)) {
        return named;
    }
    if (key.QueryValue(value.GetFullName(), named)) {
        workdir.isStandIn = false;
        workdir.registryLine = key.LineOf(value.GetFullName());
    } else {
        warn(wxString::Format("Registry value '%s' doesn't exist. Using '%s' for workdir",
                              workdir.given, standIn));
    }
    return named;
}

// Empty, and not the current folder, if what is named is empty.
wxString AbsoluteFolder(const wxString& named) {
    const wxString expanded = wxExpandEnvVars(named);
    if (expanded.empty()) {
        return {};
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

}  // namespace

Workdir ChooseWorkdir(const wxCmdLineParser& parser, const wxFileName& executable,
                      const Warn& warn) {
    Workdir workdir;
    if (parser.Found("workdir", &workdir.given)) {
        const wxString standIn = executable.GetPath(wxPATH_GET_VOLUME);
        workdir.folder = AbsoluteFolder(
            IsFromRegistry(workdir) ? ReadFromRegistry(workdir, standIn, warn) : workdir.given);
    } else {
        workdir.folder = DefaultWorkdir(executable);
    }
    if (workdir.folder.empty()) {
        workdir.problem =
            wxString::Format("The option workdir names no folder: '%s'", workdir.given);
    } else if (wxFileName::Exists(workdir.folder) && !wxFileName::DirExists(workdir.folder)) {
        workdir.problem = wxString::Format("The working folder '%s' is no folder", workdir.folder);
    }
    return workdir;
}

bool IsFromRegistry(const Workdir& workdir) {
    return workdir.given.StartsWith(kRegistryName);
}

void PublishWorkdir(const wxString& folder, ZelkaCore::CDom& dom) {
    const wxString effective = dom.GetWxString("app.name.effective");
    (void)dom.SetWx("app.path.work", folder);
    (void)dom.SetWx("app.path.ini", wxFileName(folder, effective, "ini").GetFullPath());
    (void)dom.SetWx("app.path.ini.global",
                    wxFileName(kGlobalFolder, effective, "ini").GetFullPath());
}
