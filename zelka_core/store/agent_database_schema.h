#pragma once

#include <SQLiteCpp/Database.h>

#include <filesystem>
#include <stdexcept>

#include "zelka_core/store/sqlite_database.h"

// The agent database below its operations: how its file is opened, checked and brought up to date.

namespace ZelkaCore {

// The version that MigrateSchema leads to; kept in the database as its `user_version`.
int LatestSchemaVersion();

// 0 for a database that is still empty.
int SchemaVersion(SQLite::Database& database);

// Opens an existing file with the tuning applied, the write-ahead log on, and its pages checked.
// Throws SQLite::Exception; IsDamage() is true for it if the file is no database or its check
// fails, and then the -wal file is left as it was found. Throws std::runtime_error if the schema is
// newer than this program, and changes nothing in the file.
SQLite::Database OpenChecked(const std::filesystem::path& file, const SqliteTuning& tuning);

// For a folder in which SQLite can make no -wal file: reads the database as it stands, without any
// lock. Right only while there is no -wal file, that is, nobody has it open. Throws as OpenChecked.
SQLite::Database OpenSnapshot(const std::filesystem::path& file, const SqliteTuning& tuning);

// Opens the database for a look that leaves no trace: no file is made or changed, whether an agent
// has it open or not. Throws as OpenChecked, and UnreadableLog.
class UnreadableLog : public std::runtime_error {
  public:
    // A -wal file waits to be taken over, and there is no -shm file to read it by.
    UnreadableLog() : std::runtime_error("its write-ahead log has to be taken over first") {}
};
SQLite::Database OpenForLook(const std::filesystem::path& file);

// Brings an older schema to the latest version, step by step in one transaction.
void MigrateSchema(SQLite::Database& database);

// The file itself is at fault, as against a disk, a lock or a right.
bool IsDamage(const SQLite::Exception& error);

// Lets a damaged database close without touching its -wal file.
void KeepFilesOnClose(SQLite::Database& database);

}  // namespace ZelkaCore
