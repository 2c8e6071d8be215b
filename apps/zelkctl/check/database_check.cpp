#include <SQLiteCpp/Statement.h>

#include <chrono>
#include <exception>
#include <filesystem>
#include <functional>

#include "apps/zelkctl/check/checks.h"
#include "apps/zelkctl/check/database_look.h"
#include "zelka_core/store/agent_database_schema.h"
#include "zelka_core/store/database_file.h"

namespace fs = std::filesystem;

namespace {

using Kind = FolderLock::Kind;
using Work = std::function<void(SQLite::Database&)>;

// While nobody makes or moves the database, if there is one, or uses it at all.
void LookUnder(Kind kind, const fs::path& file, const Work& work) {
    constexpr std::chrono::seconds kPatience{5};
    const auto lock = ZelkaCore::LockFolder(file.parent_path(), kind, kPatience);
    if (lock && ZelkaCore::IdentityOf(file)) {
        SQLite::Database database = ZelkaCore::OpenForLook(file);
        ZelkaCore::KeepFilesOnClose(database);
        work(database);
    }
}

// What looks like a fault may be an agent that opens or closes the database meanwhile: it is one if
// it is there while none does.
void Look(const fs::path& file, const Work& work) {
    try {
        return LookUnder(Kind::Shared, file, work);
    } catch (const SQLite::Exception&) {
    } catch (const ZelkaCore::UnreadableLog&) {
    }
    LookUnder(Kind::Exclusive, file, work);
}

// What is wrong with it, its own check tells.
void LookIfPossible(const std::string& database, const Work& work) {
    try {
        Look(database, work);
    } catch (const std::exception&) {  // then nothing is found
    }
}

}  // namespace

void CheckDatabase(const Start& start, Findings& findings) {
    const std::string file = start.dom->GetPluginFile("zelka_core", "zelk_agent.db");
    if (file.empty()) {
        return;
    }
    try {
        Look(file, [](SQLite::Database&) {});
    } catch (const ZelkaCore::UnreadableLog& error) {
        findings.Warning(file, std::string("was not looked into: ") + error.what());
    } catch (const SQLite::Exception& error) {
        findings.Error(file,
                       ZelkaCore::IsDamage(error)
                           ? std::string("is damaged, and put aside by a start: ") + error.what()
                           : std::string("cannot be read: ") + error.what());
    } catch (const std::exception& error) {
        findings.Error(file, error.what());
    }
}

bool HasSetting(const std::string& database, const std::string& name) {
    bool isStored = false;
    LookIfPossible(database, [&](SQLite::Database& opened) {
        SQLite::Statement query(opened, "SELECT 1 FROM setting WHERE name = ?");
        query.bind(1, name);
        isStored = query.executeStep();
    });
    return isStored;
}

ZelkaCore::InstalledPackages LookAtPackages(const std::string& database) {
    ZelkaCore::InstalledPackages found;
    LookIfPossible(database, [&](SQLite::Database& opened) {
        found = {ZelkaCore::PackagesIn(opened), ZelkaCore::OwnersIn(opened)};
    });
    return found;
}
