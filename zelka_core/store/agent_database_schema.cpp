#include "zelka_core/store/agent_database_schema.h"

#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>
#include <sqlite3.h>

#include <array>
#include <stdexcept>
#include <string>

namespace fs = std::filesystem;

namespace ZelkaCore {

namespace {

// The step at index N leads from version N to version N + 1. A step that was shipped never changes.
constexpr std::array kSteps{
    "CREATE TABLE setting (name TEXT NOT NULL PRIMARY KEY, value TEXT NOT NULL);"
    "CREATE TABLE agent_event (id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " code INTEGER NOT NULL, severity INTEGER NOT NULL,"
    " jtime INTEGER NOT NULL, time INTEGER NOT NULL, data TEXT NOT NULL);",
    // Packages with a manifest, by whose names everything here goes, and the files that they own.
    // package_change: what was begun with a package and is not done. package_kept: what lies in the
    // place of the package's kept files, and where it was; `owned_sha256` is null for what the
    // package did not own. package_trial: the package as it was before the version that is on
    // trial.
    "CREATE TABLE package (name TEXT NOT NULL PRIMARY KEY, version TEXT NOT NULL,"
    " requirements TEXT NOT NULL, archive TEXT NOT NULL, signer TEXT NOT NULL,"
    " installed INTEGER NOT NULL);"
    "CREATE TABLE package_file (path TEXT NOT NULL PRIMARY KEY, package TEXT NOT NULL,"
    " sha256 TEXT NOT NULL, mode INTEGER NOT NULL);"
    "CREATE INDEX package_file_package ON package_file (package);"
    "CREATE TABLE package_change (package TEXT NOT NULL PRIMARY KEY, archive TEXT NOT NULL);"
    "CREATE TABLE package_change_file (package TEXT NOT NULL, path TEXT NOT NULL,"
    " PRIMARY KEY (package, path));"
    "CREATE TABLE package_kept (package TEXT NOT NULL, path TEXT NOT NULL, number INTEGER NOT NULL,"
    " sha256 TEXT NOT NULL, owned_sha256 TEXT, owned_mode INTEGER, PRIMARY KEY (package, path));"
    "CREATE TABLE package_trial (package TEXT NOT NULL PRIMARY KEY, version TEXT NOT NULL,"
    " requirements TEXT NOT NULL, archive TEXT NOT NULL, signer TEXT NOT NULL,"
    " installed INTEGER NOT NULL, failures INTEGER NOT NULL, start TEXT NOT NULL,"
    " needs_start INTEGER NOT NULL);",
};

void RefuseUnknownVersion(SQLite::Database& database) {
    const int version = SchemaVersion(database);
    if (version < 0 || version > LatestSchemaVersion()) {
        throw std::runtime_error("its schema version is " + std::to_string(version) +
                                 ", and this program knows none above " +
                                 std::to_string(LatestSchemaVersion()));
    }
}

void CheckPages(SQLite::Database& database) {
    const std::string answer = database.execAndGet("PRAGMA quick_check(1)").getString();
    if (answer == "ok") {
        return;
    }
    // The check reports a page that could not be read among the faults. That is the disk's fault.
    const bool unreadable = answer.find("error code=") != std::string::npos;
    throw SQLite::Exception(answer, unreadable ? SQLITE_IOERR : SQLITE_CORRUPT);
}

void Tune(SQLite::Database& database, const SqliteTuning& tuning) {
    const auto set = [&](const std::string& name, std::int64_t value) {
        database.exec("PRAGMA " + name + "=" + std::to_string(value));
    };
    set("cache_size", tuning.cacheSize);
    set("mmap_size", tuning.mmapSize);
    set("wal_autocheckpoint", tuning.walAutocheckpoint);
    // What brings the database into being is synced whatever the tuning; writers set their own
    // level.
    set("synchronous", SqliteTuning::kExtra);
}

// A path as the file part of a URI: what has a meaning there is escaped.
std::string Uri(const fs::path& file) {
    static constexpr const char* kHex = "0123456789ABCDEF";
    std::string uri = "file:";
    for (const char c : file.string()) {
        if (c == '%' || c == '?' || c == '#') {
            const auto byte = static_cast<unsigned char>(c);
            uri += {'%', kHex[byte >> 4U], kHex[byte & 15U]};
        } else {
            uri += c;
        }
    }
    return uri;
}

SQLite::Database OpenReadOnly(const std::string& uri, const SqliteTuning& tuning) {
    SQLite::Database database(uri, SQLite::OPEN_READONLY | SQLite::OPEN_NOMUTEX | SQLite::OPEN_URI,
                              tuning.busyTimeout);
    RefuseUnknownVersion(database);
    CheckPages(database);
    return database;
}

}  // namespace

int LatestSchemaVersion() {
    return static_cast<int>(kSteps.size());
}

int SchemaVersion(SQLite::Database& database) {
    return database.execAndGet("PRAGMA user_version").getInt();
}

SQLite::Database OpenChecked(const fs::path& file, const SqliteTuning& tuning) {
    SQLite::Database database(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX,
                              tuning.busyTimeout);
    try {
        RefuseUnknownVersion(database);
        CheckPages(database);
        Tune(database, tuning);
    } catch (const SQLite::Exception& error) {
        if (IsDamage(error)) {
            KeepFilesOnClose(database);
        }
        throw;
    }
    // Refused on a file system without shared memory, and while somebody else has the database open
    // in the other mode. Then the rollback journal serves: slower, and just as durable.
    (void)database.tryExec("PRAGMA journal_mode=WAL");
    return database;
}

SQLite::Database OpenSnapshot(const fs::path& file, const SqliteTuning& tuning) {
    return OpenReadOnly(Uri(file) + "?immutable=1", tuning);
}

SQLite::Database OpenForLook(const fs::path& file) {
    const auto isThere = [&](const char* suffix) {
        std::error_code missing;
        const auto size = fs::file_size(file.string() + suffix, missing);
        return !missing && size != 0;
    };
    try {
        if (!isThere("-wal")) {
            return OpenSnapshot(file, SqliteTuning());
        }
    } catch (const SQLite::Exception& error) {
        if (!IsDamage(error) || !isThere("-wal")) {  // else somebody writes by now
            throw;
        }
    }
    if (!isThere("-shm")) {
        throw UnreadableLog();
    }
    return OpenReadOnly(Uri(file) + "?readonly_shm=1", SqliteTuning());
}

void MigrateSchema(SQLite::Database& database) {
    SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
    for (int version = SchemaVersion(database); version < LatestSchemaVersion(); ++version) {
        database.exec(kSteps.at(static_cast<std::size_t>(version)));
    }
    database.exec("PRAGMA user_version=" + std::to_string(LatestSchemaVersion()));
    transaction.commit();
}

bool IsDamage(const SQLite::Exception& error) {
    const int kind = error.getErrorCode() & 0xff;
    return kind == SQLITE_CORRUPT || kind == SQLITE_NOTADB;
}

void KeepFilesOnClose(SQLite::Database& database) {
    (void)sqlite3_db_config(database.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

}  // namespace ZelkaCore
