#pragma once

#include <wx/fileconf.h>
#include <wx/string.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

// The two ini files of an instance, read by one rule for host and scripts: the framework's. Any
// thread; each call reads the files anew, and nothing is ever written to them. A file that is not
// there is an empty one.

namespace ZelkaCore {

// What the variables `app.path.ini` and `app.path.ini.global` hold.
struct IniPaths {
    wxString own;  // its keys win
    wxString global;
};

// A key of a group.
struct IniEntry {
    wxString name;                  // as it is written there
    std::optional<wxString> value;  // none if the framework cannot read it: a name with a slash
    wxString file;
    std::size_t line = 0;  // from 1 on; 0: the file has changed since
};

// The files that are taken for these paths, which may be relative or empty.
IniPaths LocateIniFiles(const IniPaths& paths);

// The group of the lines in front of any.
inline constexpr const char* kTopOfIni = "/";

// What is wrong with a line that makes no sense.
inline constexpr const char* kSenselessLine = "neither a [group] nor key=value";

// A line that gives a key its value.
struct IniRow {
    wxString group;  // its path: "/", "/probe"
    wxString name;
    std::size_t line = 0;
    bool isFixed = false;  // in the global file: the own one cannot change it
};

// What stands in one of the files, line by line. The framework tells values, but no places.
struct IniOutline {
    wxString file;
    std::vector<IniRow> rows;
    std::vector<std::size_t> senseless;  // the lines that make no sense
};

// Reads one file. False for one that can be neither read nor decoded, with `problem` "FILE: why"
// and `outline` untouched.
bool ReadIniOutline(const wxString& path, IniOutline& outline, wxString& problem);

// The last row of a key, whose value counts; null if there is none.
const IniRow* FindIniRow(const IniOutline& outline, const wxString& group, const wxString& name);

// Where the value of a key stands that counts, of those in both files.
struct IniPlace {
    wxString file;
    const IniRow* row = nullptr;  // of an outline; null: the key is in neither
};
IniPlace FindIniPlace(const IniOutline& own, const IniOutline& global, const wxString& group,
                      const wxString& name);

// The values of both files. What cannot be read is left out, which the log tells.
std::unique_ptr<wxFileConfig> OpenIniFiles(const IniPaths& paths);

// Reads the entries of a group, sorted by name; "" is the top of the files. Lines that make no
// sense are left out, which the log tells. False for a file that can be neither read nor decoded,
// with `problem` "FILE: why" and `entries` untouched.
bool ReadIniGroup(const IniPaths& paths, const wxString& group, std::vector<IniEntry>& entries,
                  wxString& problem);

// Whether every line of both files makes sense. `problem` otherwise: "FILE: why", "FILE:LINE: why".
bool CheckIniFiles(const IniPaths& paths, wxString& problem);

}  // namespace ZelkaCore
