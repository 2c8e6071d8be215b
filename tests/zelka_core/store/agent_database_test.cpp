#include "zelka_core/store/agent_database.h"

#include <SQLiteCpp/Database.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/zelka_core/store/agent_database_fixture.h"

namespace {
std::atomic<int> g_syncs = 0;
}

// In place of the C library's, for SQLite too: it counts, and then does what it is for.
extern "C" int CountingFdatasync(int fd) asm("fdatasync");
extern "C" int CountingFdatasync(int fd) {
    ++g_syncs;
    return static_cast<int>(syscall(SYS_fdatasync, fd));
}

namespace ZelkaCore {
namespace {

TEST_F(AgentDatabaseTest, ReadingOrRemovingWhereThereIsNoDatabaseFindsNothingAndMakesNothing) {
    AgentDatabase database = Open();
    EXPECT_EQ(Setting(database), "none");
    EXPECT_TRUE(database.SettingRemove("name"));
    EXPECT_THAT(EventData(database), IsEmpty());
    EXPECT_TRUE(fs::is_empty(m_scratch.Path()));
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(AgentDatabaseTest, OnlyTheOwnerCanReadWhatTheAgentMakesAndWhatItFindsOpen) {
    for (const char* origin : {"made", "found"}) {
        AgentDatabase database = Open();
        ASSERT_TRUE(database.SettingStore("name", origin));
        for (const char* suffix : {"", "-wal", "-shm"}) {
            const auto mode = fs::status(m_file.string() + suffix).permissions();
            EXPECT_EQ(mode, fs::perms{0600}) << origin << suffix;
        }
        fs::permissions(m_file, fs::perms{0644});
    }
    for (const fs::path& folder : {m_file.parent_path(), m_file.parent_path().parent_path()}) {
        EXPECT_EQ(fs::status(folder).permissions(), fs::perms{0700});
    }
}

TEST_F(AgentDatabaseTest, AnEventIsSyncedBeforeItsWriteReturnsHoweverLowTheTuning) {
    AgentDatabase database = Open({.synchronous = SqliteTuning::kNormal});
    ASSERT_TRUE(database.SettingStore("name", "makes the database"));
    int before = g_syncs;
    ASSERT_TRUE(database.EventWrite(EventWithData("event")));
    EXPECT_GT(g_syncs, before);
    before = g_syncs;
    ASSERT_TRUE(database.SettingStore("name", "value"));
    EXPECT_EQ(g_syncs, before) << "the tuning is not applied";
}

TEST_F(AgentDatabaseTest, ASchemaNewerThanTheProgramIsRefusedAndLeftAsItIs) {
    ASSERT_TRUE(Open().SettingStore("name", "value"));
    SQLite::Database(m_file.string(), SQLite::OPEN_READWRITE).exec("PRAGMA user_version=99");
    const std::string before = ReadFile(m_file);
    AgentDatabase database = Open();
    EXPECT_FALSE(database.SettingStore("name", "other"));
    EXPECT_EQ(Setting(database), "none");
    EXPECT_EQ(ReadFile(m_file), before);
    EXPECT_THAT(m_log.Lines(), ElementsAre(HasSubstr("schema version is 99"), HasSubstr("99")));
    EXPECT_THAT(PutAside(), IsEmpty());
}

TEST_F(AgentDatabaseTest, AFileThatIsDeletedUnderAnOpenDatabaseIsBegunAgain) {
    AgentDatabase database = Open();
    ASSERT_TRUE(database.SettingStore("name", "value"));
    fs::remove_all(m_scratch.Path() / "plugins");
    EXPECT_EQ(Setting(database), "none");
    EXPECT_TRUE(database.EventWrite(EventWithData("kept")));
    AgentDatabase other = Open();
    EXPECT_THAT(EventData(other), ElementsAre("kept"));
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(AgentDatabaseTest, ThreadsMayUseOneDatabaseAtOnce) {
    AgentDatabase database = Open();
    const auto work = [&](const std::string& name) {
        for (int round = 0; round < 50; ++round) {
            EXPECT_TRUE(database.SettingStore(name, std::to_string(round)));
            EXPECT_EQ(Setting(database, name), std::to_string(round));
            EXPECT_TRUE(database.EventWrite(EventWithData(name)));
        }
    };
    std::thread other([&] { work("one"); });
    work("two");
    other.join();
    EXPECT_THAT(EventData(database), SizeIs(100));
}

}  // namespace
}  // namespace ZelkaCore
