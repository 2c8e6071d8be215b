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
// well-formed UTF-8 without control characters and their like (HasDeceptiveCharacter; NUL is one),
// no "..", no backslash, no drive letter, no part longer than a file system takes, not the name of
// a temporary file of Unzip. No two entries may have the same path, and none may lie below a file.
//
// True fills `paths`: the path of each entry in the order of `entries`, with "." and empty parts
// gone and no '/' at the end; empty for a folder entry that means the target folder itself. False
// leaves `paths` alone and puts the entry and the reason into `fault`.
bool CheckPackage(const std::vector<ZipEntry>& entries, std::vector<std::string>& paths,
                  std::string& fault);

// The check for entries with the same path or below a file alone, for the paths that `paths` has
// them at. False puts the entry and the reason into `fault`.
bool CheckClashes(const std::vector<ZipEntry>& entries, const std::vector<std::string>& paths,
                  std::string& fault);

// What the entries take of a file system: the largest number for what exceeds it.
struct DeclaredRoom {
    std::uint64_t bytes = 0;  // in whole blocks, one for each folder
    std::uint64_t files = 0;  // and folders, also those that no entry is for
};
DeclaredRoom RoomFor(const std::vector<ZipEntry>& entries, std::uint64_t blockSize);

// "entry 'name': reason", with the name as ShownName.
std::string EntryFault(const ZipEntry& entry, const std::string& reason);

}  // namespace ZelkaCore
