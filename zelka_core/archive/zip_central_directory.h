#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace ZelkaCore {

// Reads the entry names of a ZIP archive byte for byte from its central directory
// (APPNOTE.TXT 6.3.10, 4.3.12 to 4.3.16), in the directory's order, and checks that the directory
// is what the end records say: the last thing in the file but for them, of the size and with the
// number of entries that they tell, with nothing behind. libzip tells no name that holds a NUL
// apart from one that holds a space, and takes an empty file for an empty archive; this does
// neither.
//
// False leaves `names` alone and puts the reason into `fault`. The position of `file` is undefined
// afterwards.
bool ReadCentralDirectoryNames(std::FILE* file, std::vector<std::string>& names,
                               std::string& fault);

}  // namespace ZelkaCore
