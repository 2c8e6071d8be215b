// The Lua archives of this run: finds them and publishes them as `app.lua.zippath`.

#include <wx/arrstr.h>
#include <wx/confbase.h>
#include <wx/dir.h>
#include <wx/filename.h>
#include <wx/log.h>

#include "apps/zelka/script/semicolon_list.h"
#include "apps/zelka/zelka.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/store/dom.h"

namespace {

constexpr const char* kArchiveFolder = "zelka_core";
constexpr const char* kStandardArchive = "zelka";
constexpr const char* kExtension = "zke";

void Append(wxString& list, const wxString& entry) {
    if (!list.empty()) {
        list += ";";
    }
    list += entry;
}

void AppendStandardArchive(wxString& list, const wxString& bin, const wxString& name) {
    wxFileName archive(bin, name, kExtension);
    (void)archive.AppendDir(kArchiveFolder);
    if (archive.FileExists()) {
        Append(list, archive.GetFullPath());
    }
}

// Appends the pattern for all archives of a folder, if the folder exists.
void AppendExtensionFolder(wxString& list, const wxString& bin, const wxString& folder) {
    wxFileName pattern(folder, "*", kExtension);
    (void)pattern.MakeAbsolute(bin);
    if (pattern.DirExists()) {
        Append(list, pattern.GetFullPath());
    }
}

// The files that a pattern, or a plain file name, stands for, in ascending order.
wxSortedArrayString FindMatches(const wxFileName& pattern) {
    wxArrayString found;
    if (pattern.IsDirReadable()) {
        (void)wxDir::GetAllFiles(pattern.GetPath(wxPATH_GET_VOLUME), &found, pattern.GetFullName(),
                                 wxDIR_FILES);
    }
    return wxSortedArrayString(found);
}

void AppendMatches(wxString& list, const wxString& bin, const wxString& entry) {
    wxFileName pattern(wxExpandEnvVars(entry));
    if (pattern.IsRelative()) {
        (void)pattern.MakeAbsolute(bin);
    }
    const wxSortedArrayString matches = FindMatches(pattern);
    if (matches.empty() && pattern.GetFullName().find_first_of("*?") == wxString::npos) {
        wxLogWarning("%s: no matches", entry);
    }
    for (const wxString& match : matches) {
        wxFileName file;
        file.AssignDir(pattern.GetPath(wxPATH_GET_VOLUME));
        file.SetFullName(wxFileName(match).GetFullName());
        (void)file.MakeAbsolute();
        if (!file.IsFileReadable()) {
            wxLogWarning("Extension file '%s' isn't readable", file.GetFullPath());
            continue;
        }
        ZELKA_TRACE("Appl", "CAgentApp::ExpandZippath",
                    "Adding extension file '%s' to the search path.", file.GetFullPath());
        Append(list, file.GetFullPath());
    }
}

}  // namespace

void CAgentApp::ExpandZippath() {
    const wxString bin = m_pDom->GetWxString("app.path.bin");
    wxString result;
    AppendStandardArchive(result, bin, GetAppName());
    if (GetAppName() != kStandardArchive) {
        AppendStandardArchive(result, bin, kStandardArchive);
    }
    if (!m_strExtDir.empty()) {
        AppendExtensionFolder(m_strZipPath, bin, m_strExtDir);
        AppendExtensionFolder(m_strZipPath, bin, m_strExtDir + "p");
    }
    ZELKA_TRACE("Appl", "CAgentApp::ExpandZippath", "zipFilespec: %s", m_strZipPath);
    std::list<wxString> entries;
    SplitSemicolonList(entries, m_strZipPath);
    m_strZipPath.clear();
    for (const wxString& entry : entries) {
        AppendMatches(result, bin, entry);
    }
    if (result.empty()) {
        ZELKA_TRACE("Appl", "CAgentApp::ExpandZippath", "app.lua.zippath empty ");
        return;
    }
    (void)m_pDom->SetWx("app.lua.zippath", result);
    ZELKA_TRACE("Appl", "CAgentApp::ExpandZippath", "app.lua.zippath '%s' ", result);
}
