#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <functional>
#include <string>
#include <system_error>

#include "platform/scoped_fd.h"

// What is reached through the descriptor of an open folder.

// Opens for reading what is a regular file, and gives its status; waits for nobody. Anything else
// is PlatformError::kNotRegularFile. `flags` may add O_NOFOLLOW, to which a link answers ELOOP.
std::error_code OpenRegularAt(int folder, const std::string& name, int flags, ScopedFd& file,
                              struct stat& status);

// Shows each entry but "." and ".." to the visitor, whose error ends it. The descriptor itself is
// not read from.
std::error_code VisitEntries(int folder,
                             const std::function<std::error_code(const dirent&)>& visitor);
