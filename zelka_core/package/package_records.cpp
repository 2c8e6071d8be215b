#include "zelka_core/package/package_records.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include <set>
#include <utility>

namespace ZelkaCore {

namespace {

using Access = AgentDatabase::Access;

// Runs a statement with these values for its question marks.
template <typename... Values>
int Execute(SQLite::Database& database, const char* text, const Values&... values) {
    SQLite::Statement statement(database, text);
    int index = 0;
    (statement.bind(++index, values), ...);
    return statement.exec();
}

// What `take` puts into a container of each row of a query. Nothing where the database is an older
// one that nobody may write to.
template <typename Container, typename Take, typename... Values>
Container Rows(SQLite::Database& database, const char* text, const Take& take,
               const Values&... values) {
    Container found;
    if (!database.tableExists("package")) {
        return found;
    }
    SQLite::Statement query(database, text);
    int index = 0;
    (query.bind(++index, values), ...);
    while (query.executeStep()) {
        take(found, query);
    }
    return found;
}

// Fills `target` with what `read` gives of the database.
template <typename Container, typename Query>
bool Read(AgentDatabase& database, Container& target, const Query& query) {
    Container found;
    const auto work = [&](SQLite::Database& open) { found = query(open); };
    if (!database.Transact(Access::Read, "read what it knows of packages", work)) {
        return false;
    }
    target = std::move(found);
    return true;
}

// The same of the rows of a query.
template <typename Container, typename Take, typename... Values>
bool Read(AgentDatabase& database, Container& target, const char* text, const Take& take,
          const Values&... values) {
    return Read(database, target, [&](SQLite::Database& open) {
        return Rows<Container>(open, text, take, values...);
    });
}

bool Change(AgentDatabase& database, const AgentDatabase::Work& work) {
    return database.Transact(Access::Make, "change what it knows of packages", work);
}

// The columns name, version, requirements, archive, signer, installed.
InstalledPackage PackageOf(SQLite::Statement& row) {
    return {.name = row.getColumn(0).getString(),
            .version = row.getColumn(1).getString(),
            .requirements = row.getColumn(2).getString(),
            .archive = row.getColumn(3).getString(),
            .signer = row.getColumn(4).getString(),
            .installed = row.getColumn(5).getInt64()};
}

void StorePackage(SQLite::Database& database, const InstalledPackage& package) {
    Execute(database,
            "INSERT OR REPLACE INTO package (name, version, requirements, archive, signer,"
            " installed) VALUES (?, ?, ?, ?, ?, ?)",
            package.name, package.version, package.requirements, package.archive, package.signer,
            package.installed);
}

void StoreFiles(SQLite::Database& database, const std::string& package,
                const std::vector<OwnedFile>& files) {
    Execute(database, "DELETE FROM package_file WHERE package = ?", package);
    SQLite::Statement insert(
        database, "INSERT INTO package_file (path, package, sha256, mode) VALUES (?, ?, ?, ?)");
    for (const OwnedFile& file : files) {
        insert.bind(1, file.path);
        insert.bind(2, package);
        insert.bind(3, file.sha256);
        insert.bind(4, static_cast<std::int64_t>(file.mode));
        insert.exec();
        insert.reset();
    }
}

void StoreTrial(SQLite::Database& database, const std::string& package, const PackageTrial& trial) {
    Execute(database,
            "INSERT OR REPLACE INTO package_trial (package, version, requirements, archive,"
            " signer, installed, failures, start, needs_start)"
            " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)",
            package, trial.older.version, trial.older.requirements, trial.older.archive,
            trial.older.signer, trial.older.installed, trial.failures, trial.start,
            trial.needsStart ? 1 : 0);
}

void StoreKept(SQLite::Database& database, const std::string& package, const KeptFile& file) {
    const OwnedFile record = file.record.value_or(OwnedFile());
    Execute(database,
            "INSERT INTO package_kept (package, path, number, sha256, owned_sha256, owned_mode)"
            " VALUES (?, ?, ?, ?, nullif(?, ''), ?)",
            package, file.path, static_cast<std::int64_t>(file.number), file.sha256, record.sha256,
            static_cast<std::int64_t>(record.mode));
}

void ForgetChange(SQLite::Database& database, const std::string& package) {
    Execute(database, "DELETE FROM package_change WHERE package = ?", package);
    Execute(database, "DELETE FROM package_change_file WHERE package = ?", package);
}

void ForgetTrial(SQLite::Database& database, const std::string& package) {
    Execute(database, "DELETE FROM package_trial WHERE package = ?", package);
}

void DeleteKept(SQLite::Database& database, const std::string& package) {
    Execute(database, "DELETE FROM package_kept WHERE package = ?", package);
}

void ForgetPackage(SQLite::Database& database, const std::string& package) {
    Execute(database, "DELETE FROM package WHERE name = ?", package);
    Execute(database, "DELETE FROM package_file WHERE package = ?", package);
    ForgetChange(database, package);
    ForgetTrial(database, package);
}

}  // namespace

std::vector<InstalledPackage> PackagesIn(SQLite::Database& database) {
    return Rows<std::vector<InstalledPackage>>(
        database,
        "SELECT name, version, requirements, archive, signer, installed FROM package ORDER BY name",
        [](auto& found, SQLite::Statement& row) { found.push_back(PackageOf(row)); });
}

std::map<std::string, std::string> OwnersIn(SQLite::Database& database) {
    return Rows<std::map<std::string, std::string>>(
        database, "SELECT path, package FROM package_file ORDER BY path",
        [](auto& found, SQLite::Statement& row) {
            found.emplace_hint(found.end(), row.getColumn(0).getString(),
                               row.getColumn(1).getString());
        });
}

bool PackageRecords::List(std::vector<InstalledPackage>& packages) {
    return Read(m_database, packages, PackagesIn);
}

bool PackageRecords::Files(const std::string& package, std::vector<OwnedFile>& files) {
    return Read(
        m_database, files,
        "SELECT path, sha256, mode FROM package_file WHERE package = ? ORDER BY path",
        [](auto& found, SQLite::Statement& row) {
            found.push_back({row.getColumn(0).getString(), row.getColumn(1).getString(),
                             row.getColumn(2).getUInt()});
        },
        package);
}

bool PackageRecords::Owners(std::map<std::string, std::string>& owners) {
    return Read(m_database, owners, OwnersIn);
}

bool PackageRecords::Begin(const std::string& package, const std::string& archive,
                           const std::vector<std::string>& paths,
                           const std::vector<KeptFile>& kept) {
    return Change(m_database, [&](SQLite::Database& database) {
        Execute(database, "INSERT OR REPLACE INTO package_change (package, archive) VALUES (?, ?)",
                package, archive);
        DeleteKept(database, package);
        SQLite::Statement addPath(
            database, "INSERT OR IGNORE INTO package_change_file (package, path) VALUES (?, ?)");
        for (const std::string& path : paths) {
            addPath.bind(1, package);
            addPath.bind(2, path);
            addPath.exec();
            addPath.reset();
        }
        for (const KeptFile& file : kept) {
            StoreKept(database, package, file);
        }
    });
}

bool PackageRecords::Finish(const InstalledPackage& package, const std::vector<OwnedFile>& files,
                            const std::optional<PackageTrial>& trial) {
    return Change(m_database, [&](SQLite::Database& database) {
        StorePackage(database, package);
        StoreFiles(database, package.name, files);
        ForgetChange(database, package.name);
        if (trial) {
            StoreTrial(database, package.name, *trial);
        } else {
            ForgetTrial(database, package.name);
        }
    });
}

bool PackageRecords::Abandon(const std::string& package) {
    return Change(m_database, [&](SQLite::Database& database) {
        ForgetChange(database, package);
        ForgetTrial(database, package);
    });
}

bool PackageRecords::Unfinished(std::map<std::string, std::string>& changes) {
    return Read(m_database, changes, "SELECT package, archive FROM package_change",
                [](auto& found, SQLite::Statement& row) {
                    found.emplace(row.getColumn(0).getString(), row.getColumn(1).getString());
                });
}

bool PackageRecords::ChangedPaths(const std::string& package, std::vector<std::string>& paths) {
    return Read(
        m_database, paths, "SELECT path FROM package_change_file WHERE package = ? ORDER BY path",
        [](auto& found, SQLite::Statement& row) { found.push_back(row.getColumn(0).getString()); },
        package);
}

bool PackageRecords::Kept(const std::string& package, std::vector<KeptFile>& kept) {
    return Read(
        m_database, kept,
        "SELECT path, number, sha256, owned_sha256, owned_mode FROM package_kept"
        " WHERE package = ? ORDER BY path",
        [](auto& found, SQLite::Statement& row) {
            KeptFile& file = found.emplace_back();
            file.path = row.getColumn(0).getString();
            file.number = static_cast<std::uint64_t>(row.getColumn(1).getInt64());
            file.sha256 = row.getColumn(2).getString();
            if (!row.getColumn(3).isNull()) {
                file.record = {file.path, row.getColumn(3).getString(), row.getColumn(4).getUInt()};
            }
        },
        package);
}

bool PackageRecords::Leftovers(std::vector<std::string>& packages) {
    return Read(
        m_database, packages,
        "SELECT DISTINCT package FROM package_kept"
        " WHERE package NOT IN (SELECT package FROM package_trial)"
        " AND package NOT IN (SELECT package FROM package_change)",
        [](auto& found, SQLite::Statement& row) { found.push_back(row.getColumn(0).getString()); });
}

bool PackageRecords::ForgetKept(const std::string& package) {
    return Change(m_database, [&](SQLite::Database& database) { DeleteKept(database, package); });
}

bool PackageRecords::Trials(std::map<std::string, PackageTrial>& trials) {
    return Read(m_database, trials,
                "SELECT package, version, requirements, archive, signer, installed, failures,"
                " start, needs_start FROM package_trial",
                [](auto& found, SQLite::Statement& row) {
                    found[row.getColumn(0).getString()] = {
                        .older = PackageOf(row),
                        .failures = row.getColumn(6).getInt(),
                        .start = row.getColumn(7).getString(),
                        .needsStart = row.getColumn(8).getInt() != 0};
                });
}

bool PackageRecords::CountStart(const std::string& package, const std::string& start) {
    return Change(m_database, [&](SQLite::Database& database) {
        Execute(database,
                "UPDATE package_trial SET failures = failures + 1, start = ?1, needs_start = 0"
                " WHERE package = ?2 AND start <> ?1",
                start, package);
    });
}

bool PackageRecords::ForgiveFailures() {
    return Change(m_database, [](SQLite::Database& database) {
        Execute(database, "UPDATE package_trial SET failures = 0");
    });
}

bool PackageRecords::Pass(const std::string& package) {
    return Change(m_database, [&](SQLite::Database& database) { ForgetTrial(database, package); });
}

bool PackageRecords::TakeBack(const std::string& package) {
    return Change(m_database, [&](SQLite::Database& database) {
        Execute(database,
                "INSERT OR REPLACE INTO package (name, version, requirements, archive, signer,"
                " installed) SELECT package, version, requirements, archive, signer, installed"
                " FROM package_trial WHERE package = ?",
                package);
        Execute(database, "DELETE FROM package_file WHERE package = ?", package);
        Execute(database,
                "INSERT INTO package_file (path, package, sha256, mode)"
                " SELECT path, package, owned_sha256, owned_mode FROM package_kept"
                " WHERE package = ? AND owned_sha256 IS NOT NULL",
                package);
        ForgetChange(database, package);
        ForgetTrial(database, package);
    });
}

bool PackageRecords::Forget(const std::vector<std::string>& paths) {
    std::map<std::string, std::string> owners;
    if (!Owners(owners)) {
        return false;
    }
    std::set<std::string> losers;
    for (const std::string& path : paths) {
        if (const auto owner = owners.find(path); owner != owners.end()) {
            losers.insert(owner->second);
        }
    }
    return losers.empty() || Change(m_database, [&](SQLite::Database& database) {
               for (const std::string& path : paths) {
                   Execute(database, "DELETE FROM package_file WHERE path = ?", path);
               }
               for (const std::string& package : losers) {
                   SQLite::Statement rest(database, "SELECT 1 FROM package_file WHERE package = ?");
                   rest.bind(1, package);
                   if (!rest.executeStep()) {
                       ForgetPackage(database, package);
                   }
               }
           });
}

bool PackageRecords::Remove(const std::string& package) {
    return Change(m_database,
                  [&](SQLite::Database& database) { ForgetPackage(database, package); });
}

}  // namespace ZelkaCore
