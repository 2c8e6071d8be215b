#include <SQLiteCpp/Database.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <functional>

#include "tests/zelka_core/store/agent_database_fixture.h"

namespace ZelkaCore {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::size_t kPage = 4096;

void WriteFile(const fs::path& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

// Values of a page and more, so that there is enough to damage.
void Fill(AgentDatabase& database) {
    for (int number = 0; number < 20; ++number) {
        ASSERT_TRUE(
            database.SettingStore("name " + std::to_string(number), std::string(kPage, 'v')));
    }
}

struct Damage {
    const char* name;
    std::function<std::string(std::string)> inflict;
};

// Names the parameter in lists of tests.
void PrintTo(const Damage& damage, std::ostream* out) {
    *out << damage.name;
}

class DamagedAgentDatabase : public AgentDatabaseTest,
                             public testing::WithParamInterface<Damage> {};

TEST_P(DamagedAgentDatabase, IsPutAsideWholeAndANewOneIsBegun) {
    {
        AgentDatabase database = Open();
        Fill(database);
    }
    const std::string damaged = GetParam().inflict(ReadFile(m_file));
    WriteFile(m_file, damaged);
    WriteFile(m_file.string() + "-wal", "its log");

    {
        AgentDatabase database = Open();
        std::string value = "untouched";
        EXPECT_FALSE(database.SettingRetrieve("name 1", value));
        EXPECT_EQ(value, "untouched");
        ASSERT_THAT(PutAside(), SizeIs(1));
        EXPECT_TRUE(ReadFile(PutAside()[0]) == damaged);
        EXPECT_EQ(ReadFile(PutAside()[0].string() + "-wal"), "its log");
        EXPECT_FALSE(fs::exists(m_file));
        EXPECT_THAT(m_log.Lines(), ElementsAre(AllOf(HasSubstr(m_file.string()),
                                                     HasSubstr(PutAside()[0].string()))));

        EXPECT_TRUE(database.EventWrite(EventWithData("goes on")));
        EXPECT_THAT(EventData(database), ElementsAre("goes on"));
    }
    // A second one of the same second finds another name.
    WriteFile(m_file, damaged);
    EXPECT_TRUE(Open().EventWrite(EventWithData("once more")));
    EXPECT_THAT(PutAside(), SizeIs(2));
}

INSTANTIATE_TEST_SUITE_P(
    , DamagedAgentDatabase,
    testing::Values(
        Damage{"NoDatabase", [](const std::string&) { return std::string(10'000, 'x'); }},
        Damage{"HeaderLost", [](std::string file) { return file.replace(0, 16, 16, '\0'); }},
        Damage{"CutShort", [](const std::string& file) { return file.substr(0, file.size() / 2); }},
        Damage{"CutInsideTheFirstPage",
               [](const std::string& file) { return file.substr(0, 700); }},
        Damage{"SchemaOverwritten",
               [](std::string file) { return file.replace(2000, 2000, 2000, '\xa5'); }},
        Damage{"PageOverwritten",
               [](std::string file) { return file.replace(3 * kPage, kPage, kPage, '\xa5'); }}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(AgentDatabaseTest, DamageThatShowsLaterIsPutAsideAndTheWriteGoesToANewDatabase) {
    SqliteTuning tuning;
    tuning.cacheSize = 1;
    tuning.walAutocheckpoint = 1;
    AgentDatabase database = Open(tuning);
    Fill(database);
    std::string file = ReadFile(m_file);
    WriteFile(m_file, file.replace(kPage, file.size() - kPage, file.size() - kPage, '\xa5'));

    EXPECT_TRUE(database.EventWrite(EventWithData("kept")));
    ASSERT_THAT(PutAside(), SizeIs(1));
    EXPECT_THAT(EventData(database), ElementsAre("kept"));
    EXPECT_THAT(m_log.Lines(), SizeIs(1));
}

TEST_F(AgentDatabaseTest, WhoHasADatabaseOpenThatAnotherPutsAsideFollowsToTheNewOne) {
    AgentDatabase open = Open();
    Fill(open);
    ASSERT_TRUE(open.EventWrite(EventWithData("before")));
    // No header any more, neither in the file nor in the log.
    WriteFile(m_file, std::string(kPage, 'x'));
    WriteFile(m_file.string() + "-wal", "");
    ASSERT_TRUE(Open().EventWrite(EventWithData("new")));
    ASSERT_THAT(PutAside(), SizeIs(1));

    EXPECT_TRUE(open.EventWrite(EventWithData("follows")));
    AgentDatabase reader = Open();
    EXPECT_THAT(EventData(reader), ElementsAre("new", "follows"));
}

TEST_F(AgentDatabaseTest, AWriteThatAnotherProcessKeepsOutFailsAndWorksLater) {
    SqliteTuning tuning;
    tuning.busyTimeout = 10;
    AgentDatabase database = Open(tuning);
    ASSERT_TRUE(database.SettingStore("name", "old"));
    SQLite::Database other(m_file.string(), SQLite::OPEN_READWRITE);
    other.exec("BEGIN IMMEDIATE");

    EXPECT_FALSE(database.SettingStore("name", "new"));
    EXPECT_THAT(m_log.Lines(), ElementsAre(AllOf(HasSubstr(m_file.string()), HasSubstr("locked"))));
    std::string value;
    EXPECT_TRUE(database.SettingRetrieve("name", value));
    EXPECT_EQ(value, "old");
    EXPECT_THAT(PutAside(), IsEmpty());

    other.exec("ROLLBACK");
    EXPECT_TRUE(database.SettingStore("name", "new"));
}

// Rights bind everybody but root: root's tests act as nobody meanwhile.
class WithoutRootsRights {
  public:
    explicit WithoutRootsRights(const fs::path& owned) {
        if (geteuid() == 0) {
            for (const auto& entry : fs::recursive_directory_iterator(owned)) {
                EXPECT_EQ(chown(entry.path().c_str(), kNobody, kNobody), 0);
            }
            EXPECT_EQ(chown(owned.c_str(), kNobody, kNobody), 0);
            EXPECT_EQ(seteuid(kNobody), 0);
        }
    }
    ~WithoutRootsRights() { EXPECT_EQ(seteuid(getuid()), 0); }
    WithoutRootsRights(const WithoutRootsRights&) = delete;
    WithoutRootsRights& operator=(const WithoutRootsRights&) = delete;

  private:
    static constexpr uid_t kNobody = 65534;
};

TEST_F(AgentDatabaseTest, InAReadOnlyFolderWritesFailWithTheReasonAndReadsGoOn) {
    ASSERT_TRUE(Open().SettingStore("name", "value"));
    const fs::path folder = m_file.parent_path();
    const WithoutRootsRights rights(m_scratch.Path());
    fs::permissions(folder, fs::perms{0500});

    AgentDatabase database = Open();
    std::string value;
    for (int round = 0; round < 2; ++round) {
        EXPECT_FALSE(database.EventWrite(EventWithData("event")));
        EXPECT_TRUE(database.SettingRetrieve("name", value));
        EXPECT_EQ(value, "value");
    }
    EXPECT_THAT(m_log.Lines(), SizeIs(2));
    EXPECT_THAT(m_log.Lines(),
                Contains(HasSubstr(folder.string() + ": " + std::strerror(EACCES))).Times(2));
    EXPECT_THAT(PutAside(), IsEmpty());

    fs::permissions(folder, fs::perms{0700});
    EXPECT_TRUE(database.EventWrite(EventWithData("event")));
    EXPECT_THAT(EventData(database), ElementsAre("event"));
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
    EXPECT_LT(written, 1000U);
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
