#include "zelka_core/store/agent_database.h"

#include <SQLiteCpp/Database.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
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

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr unsigned kAllRights = 07777;

unsigned ModeOf(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & kAllRights;
}

TEST_F(AgentDatabaseTest, ReadingOrRemovingWhereThereIsNoDatabaseFindsNothingAndMakesNothing) {
    AgentDatabase database = Open();
    std::string value = "untouched";
    std::vector<StoredAgentEvent> events(1);
    EXPECT_FALSE(database.SettingRetrieve("name", value));
    EXPECT_EQ(value, "untouched");
    EXPECT_TRUE(database.SettingRemove("name"));
    EXPECT_TRUE(database.Events(0, AgentDatabase::kNoLimit, events));
    EXPECT_THAT(events, IsEmpty());
    EXPECT_TRUE(fs::is_empty(m_scratch.Path()));
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(AgentDatabaseTest, SettingsComeBackByteForByteUntilTheyAreReplacedOrRemoved) {
    const std::vector<std::string> texts = {"plain", "", "a\u00e4\u20ac\U0001F600",
                                            std::string("a\0b\0", 4), "not UTF-8: \xff\xfe"};
    {
        AgentDatabase database = Open();
        for (const std::string& text : texts) {
            ASSERT_TRUE(database.SettingStore("name " + text, "old"));
            ASSERT_TRUE(database.SettingStore("name " + text, text));
        }
    }
    AgentDatabase database = Open();
    for (const std::string& text : texts) {
        std::string value = "untouched";
        EXPECT_TRUE(database.SettingRetrieve("name " + text, value));
        EXPECT_EQ(value, text);
        EXPECT_TRUE(database.SettingRemove("name " + text));
        EXPECT_FALSE(database.SettingRetrieve("name " + text, value));
    }
}

TEST_F(AgentDatabaseTest, EventsComeBackWholeInOrderOfTheirIds) {
    CAgentEvent event;
    event.SetEventCode(5102);
    event.SetSeverity(CAgentEvent::SeverityWarning);
    event.SetJTime(1'769'860'800'999);
    event.SetTime(1'769'860'800);
    event.SetData(FromUtf8(std::string("|n\u00e4me|/p\0th", 12)));
    {
        AgentDatabase database = Open();
        ASSERT_TRUE(database.EventWrite(EventWithData("first")));
        ASSERT_TRUE(database.EventWrite(event));
        ASSERT_TRUE(database.EventWrite(EventWithData("third")));
    }
    AgentDatabase database = Open();
    std::vector<StoredAgentEvent> events;
    ASSERT_TRUE(database.Events(1, 1, events));
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].id, 2);
    EXPECT_EQ(events[0].event.GetEventCode(), event.GetEventCode());
    EXPECT_EQ(events[0].event.GetSeverity(), event.GetSeverity());
    EXPECT_EQ(events[0].event.GetJTime(), event.GetJTime());
    EXPECT_EQ(events[0].event.GetTime(), event.GetTime());
    EXPECT_EQ(events[0].event.GetData(), event.GetData());
    EXPECT_THAT(EventData(database), ElementsAre("first", ToUtf8(event.GetData()), "third"));
}

TEST_F(AgentDatabaseTest, OnlyTheOwnerCanReadWhatTheAgentMakesAndWhatItFindsOpen) {
    {
        AgentDatabase database = Open();
        ASSERT_TRUE(database.SettingStore("name", "value"));
        for (const char* suffix : {"", "-wal", "-shm"}) {
            EXPECT_EQ(ModeOf(m_file.string() + suffix), 0600U) << suffix;
        }
        EXPECT_EQ(ModeOf(m_file.parent_path()), 0700U);
        EXPECT_EQ(ModeOf(m_file.parent_path().parent_path()), 0700U);
    }
    fs::permissions(m_file, fs::perms{0644});
    AgentDatabase database = Open();
    ASSERT_TRUE(database.SettingStore("name", "other"));
    EXPECT_EQ(ModeOf(m_file), 0600U);
}

TEST_F(AgentDatabaseTest, AnEventIsSyncedBeforeItsWriteReturnsHoweverLowTheTuning) {
    SqliteTuning tuning;
    tuning.synchronous = SqliteTuning::kNormal;
    AgentDatabase database = Open(tuning);
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
    std::string value = "untouched";
    EXPECT_FALSE(database.SettingStore("name", "other"));
    EXPECT_FALSE(database.SettingRetrieve("name", value));
    EXPECT_EQ(value, "untouched");
    EXPECT_EQ(ReadFile(m_file), before);
    EXPECT_THAT(m_log.Lines(), ElementsAre(HasSubstr("schema version is 99"), HasSubstr("99")));
    EXPECT_THAT(PutAside(), IsEmpty());
}

TEST_F(AgentDatabaseTest, AFileThatIsDeletedUnderAnOpenDatabaseIsBegunAgain) {
    AgentDatabase database = Open();
    ASSERT_TRUE(database.SettingStore("name", "value"));
    fs::remove_all(m_scratch.Path() / "plugins");
    std::string value;
    EXPECT_FALSE(database.SettingRetrieve("name", value));
    EXPECT_TRUE(database.EventWrite(EventWithData("kept")));
    AgentDatabase other = Open();
    EXPECT_THAT(EventData(other), ElementsAre("kept"));
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(AgentDatabaseTest, ThreadsMayUseOneDatabaseAtOnce) {
    AgentDatabase database = Open();
    const auto work = [&](const std::string& name) {
        for (int round = 0; round < 50; ++round) {
            std::string value;
            EXPECT_TRUE(database.SettingStore(name, std::to_string(round)));
            EXPECT_TRUE(database.SettingRetrieve(name, value));
            EXPECT_EQ(value, std::to_string(round));
            EXPECT_TRUE(database.EventWrite(EventWithData(name)));
        }
    };
    std::thread other([&] { work("one"); });
    work("two");
    other.join();
    EXPECT_EQ(EventData(database).size(), 100U);
}

}  // namespace
}  // namespace ZelkaCore
