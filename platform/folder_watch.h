#pragma once

#include <string>
#include <system_error>

#include "platform/scoped_fd.h"

// Notice of what happens to the files of one folder. For one thread.
class FolderWatch {
  public:
    // From here on nothing is missed.
    [[nodiscard]] std::error_code Open(const std::string& folder);

    // Waits until files have come, gone, or been written to since the last call, or since Open.
    // ENOENT if the folder itself has gone.
    [[nodiscard]] std::error_code Wait();

  private:
    ScopedFd m_events;
};
