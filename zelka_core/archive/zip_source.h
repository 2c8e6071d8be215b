#pragma once

#include <zip.h>

#include <cstdint>
#include <string>

#include "platform/file.h"

namespace ZelkaCore {

// A part of a file as libzip's source of an archive, read ahead and at given offsets: what reads
// entry after entry asks the system once for many. Owns the file from then on. Null if there is no
// memory.
zip_source_t* MakeZipSource(FileStream file, std::uint64_t begin, std::uint64_t size);

}  // namespace ZelkaCore
