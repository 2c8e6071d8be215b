#include <SQLiteCpp/Database.h>
#include <sqlite3.h>
#include <wx/log.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <system_error>
#include <utility>

#include "platform/file.h"
#include "zelka_core/store/agent_database.h"
#include "zelka_core/store/agent_database_schema.h"
#include "zelka_core/text.h"

// How the database is come by for one operation: its locks, its connection, and what becomes of a
// damaged one.

namespace fs = std::filesystem;

namespace ZelkaCore {

struct AgentDatabase::Connection {
    SQLite::Database database;
    FileIdentity identity{};
    // Opened without locks, for one operation only.
    bool snapshot = false;
};

namespace {

// The path as it is, if there is no current folder to complete it with.
fs::path Absolute(const fs::path& file) {
    std::error_code error;
    fs::path absolute = fs::absolute(file, error);
    return error ? file : absolute;
}

bool IsUnwritable(const SQLite::Exception& error) {
    const int kind = error.getErrorCode() & 0xff;
    return kind == SQLITE_CANTOPEN || kind == SQLITE_READONLY || kind == SQLITE_PERM;
}

// SQLite's words, and the system's where SQLite only says that it may not.
std::string Reason(const SQLite::Exception& error, const fs::path& file) {
    const int code = std::max(error.getErrorCode(), error.getExtendedErrorCode());
    std::string reason = error.what() + (" (SQLite code " + std::to_string(code) + ")");
    if (!IsUnwritable(error)) {
        return reason;
    }
    for (const fs::path& path : {file.parent_path(), file}) {
        if (const auto refusal = CheckAccess(path.string())) {
            reason += "; " + path.string() + ": " + refusal.message();
        }
    }
    return reason;
}

}  // namespace

AgentDatabase::AgentDatabase(const fs::path& file, const SqliteTuning& tuning)
    : m_file(Absolute(file)), m_tuning(tuning) {
}

// The last one to close a database takes its -wal file over, which others are not to see by half.
AgentDatabase::~AgentDatabase() {
    const MutexLock lock(m_mutex);
    if (!m_connection) {
        return;
    }
    try {
        const auto folder = LockFolder(Access::Change, FolderLock::Kind::Shared);
        m_connection.reset();
    } catch (const std::exception&) {
        m_connection.reset();  // whoever has the lock sees it then
    }
}

bool AgentDatabase::Run(Access access, const char* task, const Work& work) {
    const MutexLock lock(m_mutex);
    std::string reason;
    try {
        Use(access, work);
        return true;
    } catch (const SQLite::Exception& error) {
        Disconnect(error);
        reason = Reason(error, m_file);
    } catch (const std::exception& error) {
        reason = error.what();
    }
    wxLogError("Agent database '%s' could not %s: %s", FromUtf8(m_file.string()), task,
               FromUtf8(reason));
    return false;
}

// Damage is looked at again under the exclusive lock, as another process may have put the file
// aside meanwhile. It is put aside once; a new database that fails as well is an error.
void AgentDatabase::Use(Access access, const Work& work) {
    using Kind = FolderLock::Kind;
    Kind kind = Kind::Shared;
    bool putAside = false;
    for (;;) {
        const std::optional<FolderLock> folder = LockFolder(access, kind);
        if (!folder) {
            return;
        }
        try {
            const State state = Connect(access, kind == Kind::Exclusive);
            if (state == State::Ready) {
                work(m_connection->database);
            }
            if (state != State::NeedsExclusive) {
                break;
            }
        } catch (const SQLite::Exception& error) {
            if (!IsDamage(error) || putAside) {
                throw;
            }
            Disconnect(error);
            if (kind == Kind::Exclusive) {
                PutAside(error);
                putAside = true;
            }
        }
        kind = Kind::Exclusive;
    }
    if (m_connection && m_connection->snapshot) {
        m_connection.reset();
    }
}

std::optional<FolderLock> AgentDatabase::LockFolder(Access access, FolderLock::Kind kind) const {
    const fs::path folder = m_file.parent_path();
    if (access == Access::Make) {
        MakePrivateFolders(folder);
    }
    auto lock =
        ZelkaCore::LockFolder(folder, kind, std::chrono::milliseconds(m_tuning.busyTimeout));
    if (!lock && access == Access::Make) {
        throw std::system_error(std::make_error_code(std::errc::no_such_file_or_directory),
                                folder.string());
    }
    return lock;
}

AgentDatabase::State AgentDatabase::Connect(Access access, bool exclusive) {
    std::optional<FileIdentity> identity = IdentityOf(m_file);
    if (m_connection && identity == m_connection->identity) {
        return State::Ready;
    }
    // SQLite sees for itself that the file was moved, and leaves the new one's -wal file alone.
    m_connection.reset();
    if (!identity) {
        if (access != Access::Make) {
            return State::Absent;
        }
        if (!exclusive) {
            return State::NeedsExclusive;
        }
        MakePrivateFile(m_file);
        identity = IdentityOf(m_file);
    }
    auto connection = Open(access);
    connection->identity = identity.value_or(FileIdentity());
    const int version = SchemaVersion(connection->database);
    if (version == 0 && access != Access::Make) {
        return State::Absent;
    }
    if (version < LatestSchemaVersion() && !connection->snapshot) {
        if (!exclusive) {
            return State::NeedsExclusive;
        }
        MigrateSchema(connection->database);
    }
    m_connection = std::move(connection);
    return State::Ready;
}

std::unique_ptr<AgentDatabase::Connection> AgentDatabase::Open(Access access) const {
    MakeDatabasePrivate(m_file);
    try {
        return std::make_unique<Connection>(Connection{OpenChecked(m_file, m_tuning)});
    } catch (const SQLite::Exception& error) {
        std::error_code missing;
        const auto walSize = fs::file_size(m_file.string() + "-wal", missing);
        if (access != Access::Read || !IsUnwritable(error) || (!missing && walSize != 0)) {
            throw;
        }
    }
    return std::make_unique<Connection>(Connection{OpenSnapshot(m_file, m_tuning), {}, true});
}

// After an error that the connection itself may stand in the way of getting over.
void AgentDatabase::Disconnect(const SQLite::Exception& error) {
    if (!m_connection) {
        return;
    }
    if (IsDamage(error)) {
        KeepFilesOnClose(m_connection->database);
        m_connection.reset();
    } else if (IsUnwritable(error) || m_connection->snapshot) {
        m_connection.reset();
    }
}

void AgentDatabase::PutAside(const SQLite::Exception& damage) const {
    const fs::path target = PutDatabaseAside(m_file);
    wxLogError("Agent database '%s' is damaged: %s. It was put aside as '%s', a new one is begun",
               FromUtf8(m_file.string()), FromUtf8(damage.what()), FromUtf8(target.string()));
}

}  // namespace ZelkaCore
