#pragma once

#include <wx/arrstr.h>
#include <wx/string.h>

#include <string>
#include <vector>

namespace ZelkaCore {
class CDom;
}  // namespace ZelkaCore

// The packages that wait beside the program for a start that carries them out, and the rules by
// which some are thrown away unopened; relay_conflict.h has those between relays.

inline constexpr const char* kPackages = "*.zkp";
inline constexpr const char* kRemovals = "*.zku";

// The name by which packages require the program.
inline constexpr const char* kRequiredProgram = "zelk_agent";

// While it is there, a key of the registry below HKLM\Software, all packages are thrown away.
inline constexpr const char* kUpgradeFlag = "ZelkaUpgradeFlag";
bool IsUpgradeFlagged();

// While it is stored, relay packages are thrown away.
inline constexpr const char* kNewVersionSetting = "zelka_version_new";

// Packages of the agent's own core, which go unless all do.
wxSortedArrayString ListCorePackages(const wxString& bin);

// Whether packages of the type are thrown away on this machine.
bool IsSkippedInAgentMode(const wxString& type);

// The full paths of the files in the folder that match a pattern, ascending: no folders, nothing
// hidden, and with regard to case. Empty if there is no such folder.
wxSortedArrayString ListFiles(const wxString& folder, const wxString& pattern);

// What no package may touch, wherever the working folder is: absolute paths, for a program in the
// folder `bin`.
std::vector<std::string> OwnPlaces(const ZelkaCore::CDom& dom, const wxString& bin);
