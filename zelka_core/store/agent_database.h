#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zelka_core/mutex.h"
#include "zelka_core/store/agent_event.h"
#include "zelka_core/store/database_file.h"
#include "zelka_core/store/sqlite_database.h"

namespace SQLite {
class Database;
class Exception;
}  // namespace SQLite

namespace ZelkaCore {

// The agent's persisted settings and its events, in one SQLite file.
//
// The file, mode 0600, and what is missing of its folder, mode 0700, are made by the first write;
// until then a read finds nothing. Every operation may be called from any thread, and other
// processes may use the same file at the same time.
//
// An operation that fails leaves its outputs and the stored data as they were, and logs one error
// that names the file and the reason; the next operation tries anew. Text is UTF-8 by convention,
// but any bytes, NUL among them, come back as they were stored.
//
// A database that turns out to be damaged is renamed, with its -wal and -shm files, to
// `<file>.damaged-<UTC time>`; an error in the log tells it, the operation goes on as if there had
// been none, and the next write begins a new one, whose event ids start at 1 again. A disk, lock or
// permission error never leads there. A schema newer than this program's is refused.
//
// The object's lock is held over file I/O, and over log lines: a log target must not use the
// object.
class AgentDatabase {
  public:
    static constexpr std::int64_t kNoLimit = -1;

    // What an operation does when there is no database: finds nothing, as there is nothing to read
    // or to change, or makes it.
    enum class Access { Read, Change, Make };
    using Work = std::function<void(SQLite::Database&)>;

    // Opens nothing yet. CSqliteDatabase::InitializeSQLite, if it is used, comes first.
    AgentDatabase(const std::filesystem::path& file, const SqliteTuning& tuning);
    AgentDatabase(const AgentDatabase&) = delete;
    AgentDatabase& operator=(const AgentDatabase&) = delete;
    ~AgentDatabase();

    // Stores a value under a name, in place of an older one. When it returns true the value
    // outlasts the process; whether also a power cut, is up to the tuned `synchronous` (FULL and
    // above).
    bool SettingStore(const std::string& name, const std::string& value);

    // True when the setting exists and is now in `value`; false when there is none or it cannot be
    // read, and only the latter is logged.
    bool SettingRetrieve(const std::string& name, std::string& value);

    // True when there is no such setting any more, be it that there never was one. Durable as
    // SettingStore.
    bool SettingRemove(const std::string& name);

    // Adds an event. When it returns true the event is on the disk and outlasts a power cut,
    // however low `synchronous` is tuned, and its id is in `id`, if one is given.
    bool EventWrite(const CAgentEvent& event, std::int64_t* id = nullptr);

    // The events with an id above `afterId`, in order of id, `limit` of them at most (kNoLimit or
    // any negative number: all). Replaces `events`.
    bool Events(std::int64_t afterId, std::int64_t limit, std::vector<StoredAgentEvent>& events);

    // The last `count` events, in order of id. Replaces `events`.
    bool LastEvents(std::int64_t count, std::vector<StoredAgentEvent>& events);

    // All settings, names and values, sorted by name. Replaces `settings`.
    bool Settings(std::vector<std::pair<std::string, std::string>>& settings);

    // Lets `work` use the database in one transaction, all or nothing, which outlasts a power cut
    // once it is true. It may be called again after it has thrown, and not at all where there is no
    // database. `task` completes "could not ...". False if it threw in the end.
    bool Transact(Access access, const char* task, const Work& work);

  private:
    enum class State { Ready, Absent, NeedsExclusive };
    struct Connection;

    bool Run(Access access, const char* task, const Work& work) ZELKA_EXCLUDES(m_mutex);
    bool SelectEvents(const char* query, std::int64_t first, std::int64_t second,
                      std::vector<StoredAgentEvent>& events);
    void Use(Access access, const Work& work) ZELKA_REQUIRES(m_mutex);
    [[nodiscard]] std::optional<FolderLock> LockFolder(Access access, FolderLock::Kind kind) const;
    State Connect(Access access, bool exclusive) ZELKA_REQUIRES(m_mutex);
    [[nodiscard]] std::unique_ptr<Connection> Open(Access access) const;
    void Disconnect(const SQLite::Exception& error) ZELKA_REQUIRES(m_mutex);
    void PutAside(const SQLite::Exception& damage) const;

    // Constant after construction.
    const std::filesystem::path m_file;
    const SqliteTuning m_tuning;

    Mutex m_mutex;
    std::unique_ptr<Connection> m_connection ZELKA_GUARDED_BY(m_mutex);
};

}  // namespace ZelkaCore
