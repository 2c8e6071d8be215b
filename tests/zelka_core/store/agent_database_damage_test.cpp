#include <SQLiteCpp/Database.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

#include "tests/zelka_core/store/agent_database_fixture.h"

namespace ZelkaCore {
namespace {

constexpr std::size_t kPage = 4096;

// Values of a page and more, so that there is enough to damage.
void Fill(AgentDatabase& database) {
    for (int number = 0; number < 20; ++number) {
        ASSERT_TRUE(
            database.SettingStore("name " + std::to_string(number), std::string(kPage, 'v')));
    }
}

TEST_F(AgentDatabaseTest, ADamagedOneIsPutAsideWholeAndANewOneIsBegun) {
    {
        AgentDatabase database = Open();
        Fill(database);
    }
    const std::string good = ReadFile(m_file);
    const auto overwritten = [&](std::size_t at, std::size_t size, char with) {
        return std::string(good).replace(at, size, size, with);
    };
    for (const std::string& damaged :
         {std::string(10'000, 'x'), good.substr(0, good.size() / 2), good.substr(0, 700),
          overwritten(0, 16, '\0'), overwritten(2000, 2000, '\xa5'),
          overwritten(3 * kPage, kPage, '\xa5')}) {
        SCOPED_TRACE(damaged.size());
        fs::remove_all(m_file.parent_path());
        Overwrite(damaged);
        Overwrite("its log", "-wal");
        {
            const CapturedLog log;
            AgentDatabase database = Open();
            EXPECT_EQ(Setting(database, "name 1"), "none");
            ASSERT_THAT(PutAside(), SizeIs(1));
            EXPECT_TRUE(ReadFile(PutAside()[0]) == damaged);
            EXPECT_EQ(ReadFile(PutAside()[0] + "-wal"), "its log");
            EXPECT_FALSE(fs::exists(m_file));
            EXPECT_THAT(log.Lines(),
                        ElementsAre(AllOf(HasSubstr(m_file.string()), HasSubstr(PutAside()[0]))));
            EXPECT_TRUE(database.EventWrite(EventWithData("goes on")));
            EXPECT_THAT(EventData(database), ElementsAre("goes on"));
        }
        // A second one of the same second finds another name.
        Overwrite(damaged);
        EXPECT_TRUE(Open().EventWrite(EventWithData("once more")));
        EXPECT_THAT(PutAside(), SizeIs(2));
    }
}

TEST_F(AgentDatabaseTest, DamageThatShowsLaterIsPutAsideAndTheWriteGoesToANewDatabase) {
    AgentDatabase database = Open({.cacheSize = 1, .walAutocheckpoint = 1});
    Fill(database);
    std::string file = ReadFile(m_file);
    Overwrite(file.replace(kPage, file.size() - kPage, file.size() - kPage, '\xa5'));
    EXPECT_TRUE(database.EventWrite(EventWithData("kept")));
    EXPECT_THAT(PutAside(), SizeIs(1));
    EXPECT_THAT(EventData(database), ElementsAre("kept"));
    EXPECT_THAT(m_log.Lines(), SizeIs(1));
}

TEST_F(AgentDatabaseTest, WhoHasADatabaseOpenThatAnotherPutsAsideFollowsToTheNewOne) {
    AgentDatabase open = Open();
    Fill(open);
    ASSERT_TRUE(open.EventWrite(EventWithData("before")));
    // No header any more, neither in the file nor in the log.
    Overwrite(std::string(kPage, 'x'));
    Overwrite("", "-wal");
    ASSERT_TRUE(Open().EventWrite(EventWithData("new")));
    EXPECT_THAT(PutAside(), SizeIs(1));
    EXPECT_TRUE(open.EventWrite(EventWithData("follows")));
    AgentDatabase reader = Open();
    EXPECT_THAT(EventData(reader), ElementsAre("new", "follows"));
}

TEST_F(AgentDatabaseTest, AWriteThatAnotherProcessKeepsOutFailsAndWorksLater) {
    AgentDatabase database = Open({.busyTimeout = 10});
    ASSERT_TRUE(database.SettingStore("name", "old"));
    SQLite::Database other(m_file.string(), SQLite::OPEN_READWRITE);
    other.exec("BEGIN IMMEDIATE");
    EXPECT_FALSE(database.SettingStore("name", "new"));
    EXPECT_THAT(m_log.Lines(), ElementsAre(AllOf(HasSubstr(m_file.string()), HasSubstr("locked"))));
    EXPECT_EQ(Setting(database), "old");
    EXPECT_THAT(PutAside(), IsEmpty());
    other.exec("ROLLBACK");
    EXPECT_TRUE(database.SettingStore("name", "new"));
}

TEST_F(AgentDatabaseTest, InAReadOnlyFolderWritesFailWithTheReasonAndReadsGoOn) {
    ASSERT_TRUE(Open().SettingStore("name", "value"));
    const fs::path folder = m_file.parent_path();
    // Rights bind everybody but root, who acts as nobody meanwhile.
    constexpr uid_t kNobody = 65534;
    const int expected = geteuid() == 0 ? 0 : -1;
    for (const fs::path& path : {m_scratch.Path(), folder.parent_path(), folder, m_file}) {
        EXPECT_EQ(chown(path.c_str(), kNobody, kNobody), expected);
    }
    EXPECT_EQ(seteuid(kNobody), expected);
    fs::permissions(folder, fs::perms{0500});
    AgentDatabase database = Open();
    EXPECT_FALSE(database.EventWrite(EventWithData("event")));
    EXPECT_EQ(Setting(database), "value");
    EXPECT_THAT(m_log.Lines(), ElementsAre(HasSubstr(folder.string() + ": Permission denied")));
    EXPECT_THAT(PutAside(), IsEmpty());
    fs::permissions(folder, fs::perms{0700});
    EXPECT_TRUE(database.EventWrite(EventWithData("event")));
    EXPECT_THAT(EventData(database), ElementsAre("event"));
    EXPECT_EQ(seteuid(getuid()), 0);
}

TEST_F(AgentDatabaseTest, WithoutRoomAWriteFailsWhatIsThereIsKeptAndLaterWritesWork) {
    AgentDatabase database = Open();
    ASSERT_TRUE(database.SettingStore("name", "value"));
    const auto previousAction = std::signal(SIGXFSZ, SIG_IGN);
    rlimit previous{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &previous), 0);
    const rlimit small{200'000, previous.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    std::size_t written = 0;
    while (written < 1000 && database.EventWrite(EventWithData(std::string(kPage, 'e')))) {
        ++written;
    }
    EXPECT_THAT(m_log.Lines(), ElementsAre(HasSubstr("disk I/O error")));
    EXPECT_THAT(EventData(database), SizeIs(written));
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &previous), 0);
    (void)std::signal(SIGXFSZ, previousAction);
    EXPECT_TRUE(database.EventWrite(EventWithData("fits")));
    EXPECT_THAT(EventData(database), SizeIs(written + 1));
    EXPECT_THAT(PutAside(), IsEmpty());
}

}  // namespace
}  // namespace ZelkaCore
