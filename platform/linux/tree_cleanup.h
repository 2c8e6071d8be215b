#pragma once

#include <string>
#include <system_error>

#include "platform/scoped_fd.h"

// RemoveTemporaryFilesBelow (platform/tree_writer.h) of a folder that is open.
std::error_code RemoveTemporaryFilesBelow(ScopedFd folder, const std::string& temporaryPrefix);
