#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "platform/file.h"
#include "platform/scoped_fd.h"

// Files and folders that are closed to everyone but the running user: a folder with mode 0700 or a
// regular file with mode 0600 (octal, exactly) that belongs to this user. Any thread.

// Whether the path is such a file or folder. A symbolic link is neither, whatever it leads to.
bool IsPrivate(const std::string& path);

// Makes it one, its owner included. Neither the type nor the content change, and a link is never
// followed. PlatformError::kNeitherFolderNorFile for anything else.
[[nodiscard]] std::error_code MakePrivate(const std::string& path);

// Takes from group and others what rights they have on a file; its owner stays.
[[nodiscard]] std::error_code CloseToOthers(const std::string& path);

// Makes one folder, mode 0700. One that is there already keeps its mode and is no failure.
[[nodiscard]] std::error_code MakePrivateFolder(const std::string& path);

// Makes what is missing of the folder and its parents, mode 0700, so that it outlasts a power cut.
// `failedPath` names the one that could not be made.
[[nodiscard]] std::error_code MakePrivateFolders(const std::string& path, std::string& failedPath);

// Makes an empty file, mode 0600. EEXIST if there is one.
[[nodiscard]] std::error_code MakePrivateFile(const std::string& path);

// Makes a file to write and read, mode 0600, that loses its name at once: its content goes with the
// stream, however the process ends. What a process that was killed just then has left has no
// content, and goes here.
[[nodiscard]] std::error_code MakeNamelessFile(const std::string& path, FileStream& stream);

// Tells one file from another that later bears the same name.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    bool operator==(const FileIdentity&) const = default;
};

// Nothing when there is no such file. Does not open it: closing a descriptor drops every lock that
// this process holds on the file.
[[nodiscard]] std::error_code IdentityOf(const std::string& path,
                                         std::optional<FileIdentity>& identity);

// An advisory lock on a folder, between processes and between objects of one process. Goes with the
// object or the process.
class FolderLock {
  public:
    enum class Kind { Shared, Exclusive };

    // Nothing when there is no such folder. Waits at most `patience`, then gives ETIMEDOUT.
    [[nodiscard]] static std::error_code Take(const std::string& folder, Kind kind,
                                              std::chrono::milliseconds patience,
                                              std::optional<FolderLock>& lock);

    FolderLock(FolderLock&&) noexcept = default;
    FolderLock& operator=(FolderLock&&) = delete;
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;
    ~FolderLock();

  private:
    explicit FolderLock(ScopedFd folder) : m_folder(std::move(folder)) {}

    ScopedFd m_folder;
};
