#include <array>

#include "apps/start/configuration.h"
#include "apps/start/fips_decision.h"
#include "apps/zelkctl/check/checks.h"
#include "zelka_core/store/sqlite_database.h"
#include "zelka_core/text.h"

using ZelkaCore::FromUtf8;
using ZelkaCore::IniOutline;
using ZelkaCore::IniPaths;
using ZelkaCore::IniRow;
using ZelkaCore::ToUtf8;

namespace {

std::string Quoted(const wxString& key) {
    return "'" + ToUtf8(key) + "'";
}

// False if the file cannot be read.
bool ReadFile(const wxString& path, IniOutline& outline, Findings& findings) {
    wxString problem;
    if (ReadIniOutline(path, outline, problem)) {
        return true;
    }
    wxString reason = problem;
    (void)problem.StartsWith(path + ": ", &reason);
    findings.Error(ToUtf8(path), ToUtf8(reason));
    return false;
}

// A name that the agent alone has use for; applications may have a Trace of their own.
bool IsOnlyTheAgents(const wxString& key) {
    return IsAgentKey(key) && !key.Lower().EndsWith("trace");
}

void CheckRow(const IniOutline& outline, const IniRow& row, Findings& findings) {
    const std::string file = ToUtf8(outline.file);
    const bool isAtTop = row.group == ZelkaCore::kTopOfIni;
    if (const IniRow* last = FindIniRow(outline, row.group, row.name); last->line != row.line) {
        findings.Warning(file, row.line,
                         Quoted(row.name) + " is given again in line " +
                             std::to_string(last->line) + ", which counts");
    }
    if (isAtTop && !IsAgentKey(row.name)) {
        findings.Warning(
            file, row.line,
            "the agent has no key " + Quoted(row.name) + "; those of applications stand in groups");
    } else if (!isAtTop && IsOnlyTheAgents(row.name)) {
        findings.Warning(file, row.line,
                         Quoted(row.name) + " stands in the group '" + ToUtf8(row.group.substr(1)) +
                             "'; the agent's own keys stand in front of all groups");
    }
}

void CheckOutline(const IniOutline& outline, Findings& findings) {
    for (const std::size_t line : outline.senseless) {
        findings.Error(ToUtf8(outline.file), line, ZelkaCore::kSenselessLine);
    }
    for (const IniRow& row : outline.rows) {
        CheckRow(outline, row, findings);
    }
}

void CheckFixedKeys(const IniOutline& own, const IniOutline& global, Findings& findings) {
    for (const IniRow& row : own.rows) {
        const IniRow* fixed = FindIniRow(global, row.group, row.name);
        if (fixed != nullptr && fixed->isFixed) {
            findings.Warning(ToUtf8(own.file), row.line,
                             Quoted(row.name) + " has no effect: " + ToUtf8(global.file) + ":" +
                                 std::to_string(fixed->line) + " fixes it");
        }
    }
}

// Both files.
struct Outlines {
    IniOutline own;
    IniOutline global;
};

// Where a key of the agent's stands; nothing if it was given by an option.
ZelkaCore::IniPlace PlaceOf(const Outlines& both, const wxString& key) {
    return FindIniPlace(both.own, both.global, ZelkaCore::kTopOfIni, key);
}

void BlameValue(const Outlines& both, const wxString& key, const wxString& reason,
                Findings& findings) {
    const std::string text = ToUtf8(key + " " + reason) + ": the default stays";
    if (const auto place = PlaceOf(both, key); place.row != nullptr) {
        findings.Error(ToUtf8(place.file), place.row->line, text);
    } else {
        findings.Error("", text);
    }
}

// What looks like a no is none.
void CheckFipsMode(const Configuration& configuration, const Outlines& both, Findings& findings) {
    const wxString mode = configuration.fipsMode.value_or(wxString());
    const auto place = PlaceOf(both, kFipsMode);
    constexpr std::array kNos{"no", "off", "false"};
    for (const char* no : kNos) {
        if (place.row != nullptr && IsFipsOn(mode) && mode.IsSameAs(no, false)) {
            findings.Warning(
                ToUtf8(place.file), place.row->line,
                std::string(kFipsMode) + "=" + ToUtf8(mode) + " turns FIPS on; 0 turns it off");
        }
    }
}

}  // namespace

void CheckIniFiles(const Start& start, Findings& findings) {
    Findings found;
    const IniPaths paths = ZelkaCore::LocateIniFiles(IniFilesOf(*start.dom));
    Outlines both;
    for (const auto& [path, outline] :
         {std::pair(paths.own, &both.own), {paths.global, &both.global}}) {
        if (ReadFile(path, *outline, found)) {
            CheckOutline(*outline, found);
        }
    }
    CheckFixedKeys(both.own, both.global, found);
    const auto unfit = [&](const wxString& key, const wxString& reason) {
        BlameValue(both, key, reason, found);
    };
    const Configuration configuration = ReadConfiguration(*OpenIniFiles(paths), unfit);
    CheckFipsMode(configuration, both, found);
    PublishConfiguration(configuration, *start.dom);
    (void)ZelkaCore::TuningFrom([&](const std::string& name) { return start.dom->Get(name); },
                                [&](const std::string& name, const std::string& reason) {
                                    unfit(FromUtf8(name), FromUtf8(reason));
                                });
    findings.AddByLine(found);
}
