#pragma once

#include <wx/arrstr.h>
#include <wx/string.h>

#include <cstddef>

class wxFileName;

namespace ZelkaCore {
class CAgentEvent;
}

// What installation and removal share.

// How a package ended, as the codes of the agent events that tell of it.
enum class PackageOutcome {
    kInstalled = 5101,
    kNotInstalled = 5102,
    kRemoved = 5105,
    kNotRemoved = 5106
};

// The full paths of the files in the folder that match a pattern, ascending: no folders, nothing
// hidden, and with regard to case. Empty if there is no such folder.
wxSortedArrayString ListFiles(const wxString& folder, const wxString& pattern);

// Deletes a file or a link. What is gone already is no trouble, and a folder stays; that something
// cannot be deleted stands in the log.
void DeleteFile(const wxString& path);

// Tells the log and the service manager which package of how many is being worked on, counted from
// 1: "installing 3 of 12: Feature-RELAY-1.0".
void ReportPackage(const wxString& verb, std::size_t number, std::size_t count,
                   const wxFileName& package);

// Fills what the event of a package says before its outcome: type, name and path, and the time now.
void BeginEvent(ZelkaCore::CAgentEvent& event, const wxFileName& package);

// Adds the outcome: code and severity.
void EndEvent(ZelkaCore::CAgentEvent& event, PackageOutcome outcome);

// Whether the package's file can be read; a warning tells if not.
bool IsPackageReadable(const wxFileName& package);
