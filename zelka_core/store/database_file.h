#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>

#include "platform/scoped_fd.h"

// What the agent database does with files outside SQLite. Everything here throws std::system_error,
// which names the path, when the system refuses.

namespace ZelkaCore {

// Tells one file from another that later bears the same name.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;

    bool operator==(const FileIdentity&) const = default;
};

// Nothing when there is no such file. Does not open it: closing a descriptor of a database drops
// the locks that SQLite holds on it in this process.
std::optional<FileIdentity> IdentityOf(const std::filesystem::path& file);

// An advisory lock on a folder, between processes and between objects of one process. Users of a
// database in the folder hold it shared for the length of one operation; exclusive, while one makes
// the database or moves it away. Goes with the object or the process.
class FolderLock {
  public:
    enum class Kind { Shared, Exclusive };

    // Nothing when there is no such folder. Waits at most `patience`, then throws ETIMEDOUT.
    static std::optional<FolderLock> Take(const std::filesystem::path& folder, Kind kind,
                                          std::chrono::milliseconds patience);

    FolderLock(FolderLock&&) noexcept = default;
    FolderLock& operator=(FolderLock&&) = delete;
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;
    ~FolderLock();

  private:
    explicit FolderLock(ScopedFd folder) : m_folder(std::move(folder)) {}

    ScopedFd m_folder;
};

// Makes what is missing of `folder` and its parents, mode 0700, so that it outlasts a power cut.
void MakePrivateFolders(const std::filesystem::path& folder);

// Makes an empty file, mode 0600. There must be none.
void MakePrivateFile(const std::filesystem::path& file);

// Takes from group and others what rights they have on the database and its -wal and -shm files.
// Where the system refuses, a warning tells it.
void MakeDatabasePrivate(const std::filesystem::path& file);

// Renames the database with its -wal and -shm files to `<file>.damaged-<UTC time>`, with a number
// behind it if that is taken; nothing is overwritten. Gives the database's new path. To be called
// under the exclusive folder lock.
std::filesystem::path PutDatabaseAside(const std::filesystem::path& file);

}  // namespace ZelkaCore
