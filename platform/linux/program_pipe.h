#pragma once

#include <system_error>

#include "platform/scoped_fd.h"

enum class PipeEnd { kReading, kWriting };

// Opens a pipe to a program. The program's end is none of the standard descriptors, which the
// program's are put on one after the other; the other end does not block.
[[nodiscard]] std::error_code OpenProgramPipe(PipeEnd program, ScopedFd& reading,
                                              ScopedFd& writing);
