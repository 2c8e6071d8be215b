#pragma once

#include "platform/linux/crash/dump_file.h"
#include "platform/linux/crash/minidump_writer.h"

namespace crash {

// Appends all readable memory that is in `tables.map`, and returns the place of its list. Pages
// that were never touched become holes of the file. Runs in the signal handler.
minidump::Location AppendFullMemory(DumpFile& file, DumpTables& tables);

}  // namespace crash
