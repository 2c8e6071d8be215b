#pragma once

#include <wx/filename.h>

inline constexpr const char* kMaker = "Orvane";

// The maker's folder for a program in the folder `bin`: the parent of `bin` if that parent's path
// contains "Orvane", `bin` itself otherwise or if it has fewer than two components.
wxFileName MakerFolder(const wxFileName& bin);
