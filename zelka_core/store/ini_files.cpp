#include "zelka_core/store/ini_files.h"

#include <wx/app.h>
#include <wx/filename.h>
#include <wx/log.h>
#include <wx/textfile.h>

#include <array>
#include <utility>

#include "platform/file.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

struct Outlines {
    IniOutline own;
    IniOutline global;
};

// UTF-8 with or without a mark of the byte order, or UTF-16 with one: told anew for each text. The
// framework's own conversion keeps to what it has met first, and reads both files with one.
class Encoding : public wxMBConv {
  public:
    std::size_t ToWChar(wchar_t* to, std::size_t room, const char* text,
                        std::size_t size) const override {
        return Fresh().ToWChar(to, room, text, size);
    }
    std::size_t FromWChar(char* to, std::size_t room, const wchar_t* text,
                          std::size_t size) const override {
        return Fresh().FromWChar(to, room, text, size);
    }
    [[nodiscard]] wxMBConv* Clone() const override { return new Encoding; }  // the framework's

  private:
    static wxConvAuto Fresh() { return wxConvAuto(wxFONTENCODING_DEFAULT); }
};

wxString GroupPath(const wxString& group) {
    wxArrayString parts;
    wxSplitPath(parts, "/" + group);
    return "/" + wxJoin(parts, '/', '\0');
}

// What stands in front of `end`, where a backslash takes the meaning from the character behind it.
std::optional<wxString> NameBefore(wxUniChar end, const wxString& text) {
    wxString name;
    for (auto at = text.begin(); at != text.end(); ++at) {
        if (*at == end) {
            return name;
        }
        if (*at == '\\' && ++at == text.end()) {
            break;
        }
        name += *at;
    }
    return std::nullopt;
}

// Takes a line by the framework's rules. `group` is the one that the line stands in, or begins.
// False for a line that makes no sense.
bool TakeLine(wxString text, std::size_t line, wxString& group, std::vector<IniRow>& rows) {
    (void)text.Trim(false);
    if (text.empty() || text[0] == ';' || text[0] == '#') {
        return true;
    }
    const bool isGroup = text[0] == '[';
    auto name = isGroup ? NameBefore(']', text.substr(1)) : NameBefore('=', text);
    if (!name) {
        return false;
    }
    if (isGroup) {
        group = GroupPath(*name);
        return true;
    }
    (void)name->Trim();
    const bool isFixed = name->StartsWith("!");
    rows.push_back({group, isFixed ? name->substr(1) : *name, line, isFixed});
    return true;
}

bool ReadOutlines(const IniPaths& paths, Outlines& both, wxString& problem) {
    const IniPaths located = LocateIniFiles(paths);
    return ReadIniOutline(located.own, both.own, problem) &&
           ReadIniOutline(located.global, both.global, problem);
}

}  // namespace

IniPaths LocateIniFiles(const IniPaths& paths) {
    const auto locate = [](const wxString& path, const wxFileName& standard) {
        wxFileName file(path);
        if (!file.IsOk()) {
            return standard.GetFullPath();
        }
        (void)file.MakeAbsolute(standard.GetPath());
        return file.GetFullPath();
    };
    const wxAppConsole* app = wxAppConsole::GetInstance();
    const wxString name = app != nullptr ? app->GetAppName() : wxString();
    return {locate(paths.own, wxFileConfig::GetLocalFile(name)),
            locate(paths.global, wxFileConfig::GetGlobalFile(name))};
}

bool ReadIniOutline(const wxString& path, IniOutline& outline, wxString& problem) {
    IniOutline found;
    found.file = path;
    ScopedFd file;
    const auto error = OpenRegularFile(ToUtf8(path), file);
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) {
        outline = std::move(found);
        return true;
    }
    if (error) {
        problem = path + ": " + FromUtf8(error.message());
        return false;
    }
    // The framework gives no line of a file that does not decode, and does not say so.
    constexpr unsigned kMinimumText = 5;  // bytes: less may be a mark of the byte order alone
    const wxLogNull quiet;
    wxTextFile text;
    if (!text.Open(path, Encoding()) ||
        (text.GetLineCount() == 0 && wxFileName::GetSize(path) >= kMinimumText)) {
        problem = path + ": cannot be read as UTF-8 or UTF-16";
        return false;
    }
    wxString group = kTopOfIni;
    for (std::size_t i = 0; i < text.GetLineCount(); ++i) {
        if (!TakeLine(text[i].BeforeFirst('\0'), i + 1, group, found.rows)) {
            found.senseless.push_back(i + 1);
        }
    }
    outline = std::move(found);
    return true;
}

const IniRow* FindIniRow(const IniOutline& outline, const wxString& group, const wxString& name) {
    const IniRow* found = nullptr;
    for (const IniRow& row : outline.rows) {
        if (row.name.IsSameAs(name, false) && row.group.IsSameAs(group, false)) {
            found = &row;
        }
    }
    return found;
}

IniPlace FindIniPlace(const IniOutline& own, const IniOutline& global, const wxString& group,
                      const wxString& name) {
    const IniRow* ownRow = FindIniRow(own, group, name);
    const IniRow* globalRow = FindIniRow(global, group, name);
    const bool isGlobal = globalRow != nullptr && (ownRow == nullptr || globalRow->isFixed);
    return isGlobal ? IniPlace{global.file, globalRow} : IniPlace{own.file, ownRow};
}

std::unique_ptr<wxFileConfig> OpenIniFiles(const IniPaths& paths) {
    const IniPaths located = LocateIniFiles(paths);
    auto config = std::make_unique<wxFileConfig>(
        wxEmptyString, wxEmptyString, located.own, located.global,
        wxCONFIG_USE_LOCAL_FILE | wxCONFIG_USE_GLOBAL_FILE, Encoding());
    config->DisableAutoSave();
    return config;
}

bool ReadIniGroup(const IniPaths& paths, const wxString& group, std::vector<IniEntry>& entries,
                  wxString& problem) {
    Outlines both;
    if (!ReadOutlines(paths, both, problem)) {
        return false;
    }
    const wxString path = GroupPath(group);
    const auto config = OpenIniFiles(paths);
    config->SetPath(path);
    std::vector<IniEntry> found;
    found.reserve(config->GetNumberOfEntries());
    wxString name;
    long cookie = 0;
    for (bool more = config->GetFirstEntry(name, cookie); more;
         more = config->GetNextEntry(name, cookie)) {
        IniEntry entry;
        entry.name = name;
        wxString value;
        if (!name.Contains("/") && config->Read(name, &value)) {
            entry.value = value;
        }
        const IniPlace place = FindIniPlace(both.own, both.global, path, name);
        entry.file = place.file;
        if (place.row != nullptr) {
            entry.name = place.row->name;
            entry.line = place.row->line;
        }
        found.push_back(std::move(entry));
    }
    entries = std::move(found);
    return true;
}

bool CheckIniFiles(const IniPaths& paths, wxString& problem) {
    Outlines both;
    if (!ReadOutlines(paths, both, problem)) {
        return false;
    }
    for (const IniOutline* outline : {&both.own, &both.global}) {
        if (!outline->senseless.empty()) {
            problem = wxString::Format("%s:%zu: %s", outline->file, outline->senseless.front(),
                                       kSenselessLine);
            return false;
        }
    }
    return true;
}

}  // namespace ZelkaCore
