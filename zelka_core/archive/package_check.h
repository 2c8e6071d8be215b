#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zelka_core/archive/zip_archive.h"

namespace ZelkaCore {

// How the names of Unzip's temporary files begin.
inline constexpr const char* kTemporaryPrefix = ".zelka-unzip-";

// Judges the directory of a package before anything is done with it. Every entry has to be a folder
// or a plain file (ZipEntryFault), and its name a relative path that stays below where it begins:
// well-formed UTF-8 without control characters (NUL is one), no "..", no backslash, no drive
// letter, no part longer than a file system takes, not the name of a temporary file of Unzip. No
// two entries may have the same path, and none may lie below a file.
//
// True fills `paths`: the path of each entry in the order of `entries`, with "." and empty parts
// gone and no '/' at the end; empty for a folder entry that means the target folder itself. False
// leaves `paths` alone and puts the entry and the reason into `fault`.
bool CheckPackage(const std::vector<ZipEntry>& entries, std::vector<std::string>& paths,
                  std::string& fault);

// The declared sizes of all entries together, in bytes; the largest number if they exceed it.
std::uint64_t DeclaredSize(const std::vector<ZipEntry>& entries);

// "entry 'name': reason", with control characters shown as '?'.
std::string EntryFault(const ZipEntry& entry, const std::string& reason);

}  // namespace ZelkaCore
