#include "apps/start/lua_archives.h"

#include <wx/arrstr.h>
#include <wx/confbase.h>
#include <wx/dir.h>
#include <wx/filename.h>

#include "apps/start/semicolon_list.h"
#include "zelka_core/log/trace.h"

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

void AppendMatches(wxString& list, const wxString& bin, const wxString& entry, const Warn& warn) {
    wxFileName pattern(wxExpandEnvVars(entry));
    if (pattern.IsRelative()) {
        (void)pattern.MakeAbsolute(bin);
    }
    const wxSortedArrayString matches = FindMatches(pattern);
    if (matches.empty() && pattern.GetFullName().find_first_of("*?") == wxString::npos) {
        warn(wxString::Format("%s: no matches", entry));
    }
    for (const wxString& match : matches) {
        wxFileName file;
        file.AssignDir(pattern.GetPath(wxPATH_GET_VOLUME));
        file.SetFullName(wxFileName(match).GetFullName());
        (void)file.MakeAbsolute();
        if (!file.IsFileReadable()) {
            warn(wxString::Format("Extension file '%s' isn't readable", file.GetFullPath()));
            continue;
        }
        ZELKA_TRACE("Appl", "CAgentApp::ExpandZippath",
                    "Adding extension file '%s' to the search path.", file.GetFullPath());
        Append(list, file.GetFullPath());
    }
}

}  // namespace

wxString FindLuaArchives(const ArchiveSearch& search, const Warn& warn) {
    wxString result;
    AppendStandardArchive(result, search.bin, search.application);
    if (search.application != kStandardArchive) {
        AppendStandardArchive(result, search.bin, kStandardArchive);
    }
    wxString list = search.zipPath;
    if (!search.extDir.empty()) {
        AppendExtensionFolder(list, search.bin, search.extDir);
        AppendExtensionFolder(list, search.bin, search.extDir + "p");
    }
    ZELKA_TRACE("Appl", "CAgentApp::ExpandZippath", "zipFilespec: %s", list);
    std::list<wxString> entries;
    SplitSemicolonList(entries, list);
    for (const wxString& entry : entries) {
        AppendMatches(result, search.bin, entry, warn);
    }
    return result;
}
