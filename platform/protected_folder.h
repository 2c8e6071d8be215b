#pragma once

#include <cstddef>
#include <string>
#include <system_error>
#include <vector>

#include "platform/scoped_fd.h"

// A folder on whose files this process relies, because nobody but root and this user can put any
// there or change one. Each is asked by its descriptor who may. For one thread at a time.
class ProtectedFolder {
  public:
    // ENOENT if there is none, ENOTDIR for a link or whatever else is no folder, and for one that
    // is not protected PlatformError::kOwnedByOthers or kOpenToOthers.
    [[nodiscard]] std::error_code Open(const std::string& path);

    // The names of what lies in it, ascending.
    [[nodiscard]] std::error_code List(std::vector<std::string>& names) const;

    // The content of a file in it, at most `limit` bytes: EFBIG for a larger one. What is no
    // regular file, a link among others, is PlatformError::kNotRegularFile; one that is not
    // protected is refused as the folder is.
    [[nodiscard]] std::error_code Read(const std::string& name, std::size_t limit,
                                       std::string& content) const;

  private:
    ScopedFd m_folder;
};
