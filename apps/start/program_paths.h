#pragma once

#include <wx/filename.h>

namespace ZelkaCore {
class CDom;
}  // namespace ZelkaCore

inline constexpr const char* kMaker = "Orvane";

// The maker's folder for a program in the folder `bin`: the parent of `bin` if that parent's path
// contains "Orvane", `bin` itself otherwise or if it has fewer than two components.
wxFileName MakerFolder(const wxFileName& bin);

// Puts into the store where a program lies, and what belongs to it.
void PublishProgramPaths(const wxFileName& program, ZelkaCore::CDom& dom);
