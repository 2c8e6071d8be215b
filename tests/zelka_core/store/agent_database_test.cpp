#include "zelka_core/store/agent_database.h"

#include <SQLiteCpp/Database.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <map>
#include <optional>
#include <random>
#include <thread>

#include "tests/support/child_process.h"
#include "tests/zelka_core/store/agent_database_fixture.h"
#include "zelka_core/store/agent_database_schema.h"

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
    SQLite::Database(m_file.string(), SQLite::OPEN_READWRITE).exec("PRAGMA user_version=3");
    const std::string before = ReadFile(m_file);
    AgentDatabase database = Open();
    EXPECT_FALSE(database.SettingStore("name", "other"));
    EXPECT_EQ(Setting(database), "none");
    EXPECT_EQ(ReadFile(m_file), before);
    EXPECT_THAT(m_log.Lines(), ElementsAre(HasSubstr("schema version is 3"), HasSubstr("is 3")));
    EXPECT_THAT(PutAside(), IsEmpty());
}

TEST_F(AgentDatabaseTest, ALookSeesWhatIsInTheLogAndLeavesEveryFileAsItIs) {
    using Files = std::map<std::string, std::pair<std::string, fs::file_time_type>>;
    const auto files = [this] {
        Files found;
        for (const auto& entry : fs::directory_iterator(m_file.parent_path())) {
            found[entry.path().string()] = {ReadFile(entry.path()), entry.last_write_time()};
        }
        return found;
    };
    const auto look = [&] {
        const Files before = files();
        const int settings =
            OpenForLook(m_file).execAndGet("SELECT count(*) FROM setting").getInt();
        EXPECT_TRUE(files() == before);
        return settings;
    };
    std::optional<ChildProcess> agent;
    agent.emplace([this] {
        AgentDatabase database = Open();
        return database.SettingStore("name", "value") && write(STDOUT_FILENO, "w\n", 2) == 2 &&
               pause() == 0;
    });
    ASSERT_EQ(agent->ReadLine(), "w");
    EXPECT_EQ(look(), 1) << "of an agent that runs";
    agent.reset();
    EXPECT_EQ(look(), 1) << "of an agent that was killed";
    fs::remove(m_file.string() + "-shm");
    EXPECT_THROW(look(), UnreadableLog);
    ASSERT_EQ(Setting(*std::make_unique<AgentDatabase>(m_file, SqliteTuning())), "value");
    EXPECT_EQ(look(), 1) << "of one that has ended";
    Overwrite(std::string(10'000, 'x'));
    EXPECT_THROW(look(), SQLite::Exception);
}

TEST_F(AgentDatabaseTest, AFileThatIsDeletedUnderAnOpenDatabaseIsBegunAgain) {
    AgentDatabase database = Open();
    ASSERT_TRUE(database.SettingStore("name", "value"));
    fs::remove_all(m_scratch.Path() / "plugins");
    EXPECT_EQ(Setting(database), "none");
    EXPECT_TRUE(fs::is_empty(m_scratch.Path())) << "who reads makes nothing";
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

TEST_F(AgentDatabaseTest, NoEventIsLostWhoseWriteHadReturnedWhenTheProcessWasKilled) {
    constexpr unsigned kRounds = 24;
    constexpr unsigned kEvents = 500;
    const auto seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (unsigned round = 0; round < kRounds; ++round) {
        // Early as well as late, so that the making of the database is met often enough.
        const auto killAfter = random() % std::array{3U, 25U, kEvents}.at(round % 3);
        const ChildProcess child([&] {
            AgentDatabase database = Open();
            unsigned number = 0;
            while (number < kEvents && database.EventWrite(EventWithData(std::to_string(number))) &&
                   write(STDOUT_FILENO, "w\n", 2) == 2) {
                ++number;
            }
            return number == kEvents;
        });
        std::size_t returned = 0;
        while (returned < killAfter && !child.ReadLine().empty()) {
            ++returned;
        }
        // Chooses the moment inside the next write, which takes some hundred microseconds.
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 600));
        (void)kill(static_cast<pid_t>(child.Pid()), SIGKILL);
        while (!child.ReadLine().empty()) {
            ++returned;
        }

        AgentDatabase database = Open();
        const std::vector<std::string> data = EventData(database);
        ASSERT_THAT(data.size(), testing::AnyOf(returned, returned + 1));
        for (std::size_t index = 0; index < data.size(); ++index) {
            ASSERT_EQ(data[index], std::to_string(index));
        }
        ASSERT_TRUE(database.EventWrite(EventWithData("usable")));
        ASSERT_THAT(m_log.Lines(), IsEmpty());
        fs::remove_all(m_file.parent_path());
    }
}

TEST_F(AgentDatabaseTest, TwoProcessesThatReplaceADamagedDatabaseAndWriteAtOnceLoseNothing) {
    constexpr int kRounds = 6;
    constexpr int kEvents = 15;
    const auto writer = [&](const std::string& name) {
        return [=, this] {
            AgentDatabase database = Open({.busyTimeout = 60'000});
            bool good = true;
            for (int number = 0; number < kEvents && good; ++number) {
                good = database.EventWrite(EventWithData(name)) &&
                       database.SettingStore(name, std::to_string(number));
            }
            return good;
        };
    };
    for (int round = 0; round < kRounds; ++round) {
        Overwrite(std::string(10'000, 'x'));
        const ChildProcess a(writer("a"));
        const ChildProcess b(writer("b"));
        EXPECT_TRUE(a.Succeeds());
        EXPECT_TRUE(b.Succeeds());

        AgentDatabase database = Open();
        EXPECT_THAT(PutAside(), SizeIs(1));
        EXPECT_THAT(EventData(database), SizeIs(2 * kEvents));
        EXPECT_EQ(Setting(database, "a"), std::to_string(kEvents - 1));
        EXPECT_EQ(Setting(database, "b"), std::to_string(kEvents - 1));
        fs::remove_all(m_file.parent_path());
    }
}

}  // namespace
}  // namespace ZelkaCore
