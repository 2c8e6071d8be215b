#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace ZelkaCore {

struct ZipDirectory {
    std::uint64_t begin = 0;         // where in the file the archive begins
    std::uint64_t size = 0;          // of the archive, in bytes
    std::vector<std::string> names;  // of the entries
};

// Reads the entry names of a ZIP archive byte for byte from its central directory
// (APPNOTE.TXT 6.3.10, 4.3.12 to 4.3.16), in the directory's order, and checks that the directory
// is what the end records say: the last thing in the archive but for them, of the size and with the
// number of entries that they tell. libzip tells no name that holds a NUL apart from one that holds
// a space, and takes an empty file for an empty archive; this does neither.
//
// Up to 64 KiB may lie before the archive, unless they begin like an archive themselves, and behind
// it: offsets then count from where the archive begins. A directory has at most 500,000 entries and
// 128 MiB. What the file says of sizes is checked before memory is taken for it.
//
// False leaves `directory` alone and puts the reason into `fault`. The position of `file` is
// undefined afterwards.
bool ReadCentralDirectory(std::FILE* file, ZipDirectory& directory, std::string& fault);

}  // namespace ZelkaCore
