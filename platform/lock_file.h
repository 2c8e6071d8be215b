#pragma once

#include <functional>
#include <string>
#include <system_error>

#include "platform/scoped_fd.h"

// A lock between processes of one user: a file that only this user can open, so that nobody else
// can hold it. It is there while somebody has the lock, and goes with the object; what a killed
// process has left is no lock. For one thread at a time.
class LockFile {
  public:
    LockFile() = default;
    ~LockFile();
    LockFile(const LockFile&) = delete;
    LockFile& operator=(const LockFile&) = delete;

    // Waits until it has the lock. `wait` is called again and again meanwhile, some times a second.
    // EPERM for a file that is not this user's own, or that others can open too. After a failure
    // there is no lock.
    [[nodiscard]] std::error_code Take(const std::string& path, const std::function<void()>& wait);

    [[nodiscard]] bool IsTaken() const { return m_file.IsOpen(); }

  private:
    ScopedFd m_file;
    std::string m_path;
};
