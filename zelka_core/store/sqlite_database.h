#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace ZelkaCore {

class CDom;

// Tuning of the agent's SQLite databases; the meaning of each number is that of SQLite's pragma of
// the same name. The values here are in force where nothing else was configured.
struct SqliteTuning {
    // PRAGMA synchronous.
    static constexpr int kNormal = 1;
    static constexpr int kFull = 2;
    static constexpr int kExtra = 3;

    // Page cache: pages if positive, KiB if negative.
    int cacheSize = -2000;
    // Bytes of the file that are read through a memory map; 0 is none.
    std::int64_t mmapSize = 0;
    // Milliseconds that an operation waits for another process before it fails.
    int busyTimeout = 5000;
    // kNormal, kFull or kExtra. What is written as durable is never written below kFull.
    int synchronous = kFull;
    // Pages in the write-ahead log at which it is copied back into the database.
    int walAutocheckpoint = 1000;

    bool operator==(const SqliteTuning&) const = default;
};

// Tuning from the variables below; `lookup` gives a variable's text form, empty when it is absent.
// A value that is not a whole number or out of range is told by a warning and the default kept.
//
//   sqlite.config.cache_size          -1048576 (1 GiB in KiB) to 262144 (1 GiB in pages of 4 KiB)
//   sqlite.config.mmap_size           0 to 2147418112 (the limit SQLite is built with)
//   sqlite.config.busy_timeout        0 to 600000
//   sqlite.config.synchronous         1 to 3. Not 0 (OFF): a checkpoint without syncing could lose
//                                     events that were durable before it
//   sqlite.config.wal_autocheckpoint  1 to 1000000. Not 0: the log would grow without end
SqliteTuning TuningFrom(const std::function<std::string(const std::string&)>& lookup);

// The same with `refuse` told, and nothing in the log: the variable, and what is wrong with it.
SqliteTuning TuningFrom(
    const std::function<std::string(const std::string&)>& lookup,
    const std::function<void(const std::string& name, const std::string& reason)>& refuse);

// SQLite's set-up for the whole process. Databases also work without it, untuned and with SQLite's
// own messages unheard.
class CSqliteDatabase {
  public:
    CSqliteDatabase() = delete;

    // Makes SQLite safe for use from any thread, sends its messages to the log (warnings; notes on
    // ordinary recovery as verbose lines) and keeps `tuning` for Tuning(). To be called before the
    // first database is opened; a later call replaces the tuning only. No heap limit is set: what
    // SQLite holds is bounded by the page cache. A refusal by SQLite is told by an error in the
    // log.
    static void InitializeSQLite(const SqliteTuning& tuning);

    // The same with the tuning that the store's variables ask for; see TuningFrom.
    static void InitializeSQLite(CDom& dom);

    // Undoes InitializeSQLite; every database must be closed. Nothing to do is no error.
    static void ShutdownSQLite();

    // The tuning in force: the last one handed to InitializeSQLite, else the default. Any thread.
    static SqliteTuning Tuning();
};

}  // namespace ZelkaCore
