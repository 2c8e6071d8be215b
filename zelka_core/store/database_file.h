#pragma once

#include <chrono>
#include <filesystem>
#include <optional>

#include "platform/private_file.h"

// What the agent database does with files outside SQLite: the operations of platform/private_file.h
// that throw std::system_error, which names the path, where those give an error. Users of a
// database hold the lock on its folder shared for the length of one operation; exclusive, while one
// makes the database or moves it away.

namespace ZelkaCore {

std::optional<FileIdentity> IdentityOf(const std::filesystem::path& file);

std::optional<FolderLock> LockFolder(const std::filesystem::path& folder, FolderLock::Kind kind,
                                     std::chrono::milliseconds patience);

void MakePrivateFolders(const std::filesystem::path& folder);
void MakePrivateFile(const std::filesystem::path& file);

// Takes from group and others what rights they have on the database and its -wal and -shm files.
// Where the system refuses, a warning tells it.
void MakeDatabasePrivate(const std::filesystem::path& file);

// Renames the database with its -wal and -shm files to `<file>.damaged-<UTC time>`, with a number
// behind it if that is taken; nothing is overwritten. Gives the database's new path. To be called
// under the exclusive folder lock.
std::filesystem::path PutDatabaseAside(const std::filesystem::path& file);

}  // namespace ZelkaCore
