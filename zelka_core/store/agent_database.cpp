#include "zelka_core/store/agent_database.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>
#include <sqlite3.h>

#include <limits>
#include <utility>

#include "zelka_core/text.h"

// What is asked of the database and written to it, once it is open.

namespace ZelkaCore {

namespace {

void SetSynchronous(SQLite::Database& database, int level) {
    database.exec("PRAGMA synchronous=" + std::to_string(level));
}

// A longer text would reach SQLite with a negative size.
void BindText(SQLite::Statement& statement, int index, const std::string& text) {
    if (text.size() > std::size_t{std::numeric_limits<int>::max()}) {
        throw SQLite::Exception("text of " + std::to_string(text.size()) + " bytes is too long",
                                SQLITE_TOOBIG);
    }
    statement.bind(index, text);
}

CAgentEvent EventOf(SQLite::Statement& row) {
    CAgentEvent event;
    event.SetEventCode(row.getColumn(1).getInt());
    event.SetSeverity(CAgentEvent::ToSeverity(row.getColumn(2).getUInt()));
    event.SetJTime(row.getColumn(3).getInt64());
    event.SetTime(row.getColumn(4).getInt());
    event.SetData(FromUtf8(row.getColumn(5).getString()));
    return event;
}

}  // namespace

bool AgentDatabase::SettingStore(const std::string& name, const std::string& value) {
    return Run(Access::Make, "store a setting", [&](SQLite::Database& database) {
        SetSynchronous(database, m_tuning.synchronous);
        SQLite::Statement insert(database,
                                 "INSERT INTO setting (name, value) VALUES (?, ?)"
                                 " ON CONFLICT (name) DO UPDATE SET value = excluded.value");
        BindText(insert, 1, name);
        BindText(insert, 2, value);
        insert.exec();
    });
}

bool AgentDatabase::SettingRetrieve(const std::string& name, std::string& value) {
    std::optional<std::string> found;
    (void)Run(Access::Read, "retrieve a setting", [&](SQLite::Database& database) {
        SQLite::Statement query(database, "SELECT value FROM setting WHERE name = ?");
        BindText(query, 1, name);
        if (query.executeStep()) {
            found = query.getColumn(0).getString();
        }
    });
    if (!found) {
        return false;
    }
    value = std::move(*found);
    return true;
}

bool AgentDatabase::SettingRemove(const std::string& name) {
    return Run(Access::Change, "remove a setting", [&](SQLite::Database& database) {
        SetSynchronous(database, m_tuning.synchronous);
        SQLite::Statement remove(database, "DELETE FROM setting WHERE name = ?");
        BindText(remove, 1, name);
        remove.exec();
    });
}

bool AgentDatabase::EventWrite(const CAgentEvent& event, std::int64_t* id) {
    return Run(Access::Make, "write an event", [&](SQLite::Database& database) {
        // With a write-ahead log FULL syncs each commit, NORMAL only checkpoints. EXTRA is the same
        // there, and also syncs the folder where a rollback journal has to serve.
        SetSynchronous(database, SqliteTuning::kExtra);
        SQLite::Statement insert(database,
                                 "INSERT INTO agent_event (code, severity, jtime, time, data)"
                                 " VALUES (?, ?, ?, ?, ?)");
        insert.bind(1, event.GetEventCode());
        insert.bind(2, static_cast<int>(event.GetSeverity()));
        insert.bind(3, event.GetJTime());
        insert.bind(4, event.GetTime());
        BindText(insert, 5, ToUtf8(event.GetData()));
        insert.exec();
        if (id != nullptr) {
            *id = database.getLastInsertRowid();
        }
    });
}

bool AgentDatabase::Events(std::int64_t afterId, std::int64_t limit,
                           std::vector<StoredAgentEvent>& events) {
    return SelectEvents(
        "SELECT id, code, severity, jtime, time, data FROM agent_event"
        " WHERE id > ? ORDER BY id LIMIT ?",
        afterId, limit, events);
}

bool AgentDatabase::LastEvents(std::int64_t count, std::vector<StoredAgentEvent>& events) {
    return SelectEvents(
        "SELECT id, code, severity, jtime, time, data FROM"
        " (SELECT * FROM agent_event WHERE id > ? ORDER BY id DESC LIMIT ?) ORDER BY id",
        0, count, events);
}

bool AgentDatabase::SelectEvents(const char* query, std::int64_t first, std::int64_t second,
                                 std::vector<StoredAgentEvent>& events) {
    std::vector<StoredAgentEvent> found;
    const bool ran = Run(Access::Read, "read events", [&](SQLite::Database& database) {
        found.clear();
        SQLite::Statement rows(database, query);
        rows.bind(1, first);
        rows.bind(2, second);
        while (rows.executeStep()) {
            found.push_back({rows.getColumn(0).getInt64(), EventOf(rows)});
        }
    });
    if (ran) {
        events = std::move(found);
    }
    return ran;
}

bool AgentDatabase::Settings(std::vector<std::pair<std::string, std::string>>& settings) {
    std::vector<std::pair<std::string, std::string>> found;
    const bool ran = Run(Access::Read, "read settings", [&](SQLite::Database& database) {
        found.clear();
        SQLite::Statement rows(database, "SELECT name, value FROM setting ORDER BY name");
        while (rows.executeStep()) {
            found.emplace_back(rows.getColumn(0).getString(), rows.getColumn(1).getString());
        }
    });
    if (ran) {
        settings = std::move(found);
    }
    return ran;
}

bool AgentDatabase::Transact(Access access, const char* task, const Work& work) {
    return Run(access, task, [&](SQLite::Database& database) {
        if (access == Access::Read) {
            const SQLite::Transaction view(database);
            work(database);
            return;
        }
        SetSynchronous(database, SqliteTuning::kExtra);
        SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
        work(database);
        transaction.commit();
    });
}

}  // namespace ZelkaCore
