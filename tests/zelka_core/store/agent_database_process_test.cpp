#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <functional>
#include <random>
#include <thread>

#include "platform/scoped_fd.h"
#include "tests/zelka_core/store/agent_database_fixture.h"

namespace ZelkaCore {
namespace {

using testing::IsEmpty;

// A process that does some work and reports through a pipe. It is gone when the object is.
class Child {
  public:
    explicit Child(const std::function<bool(int reportFd)>& work) {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        m_reports.Reset(ends[0]);
        const ScopedFd writeEnd(ends[1]);
        m_pid = fork();
        EXPECT_GE(m_pid, 0);
        if (m_pid == 0) {
            m_reports.Reset();
            _exit(work(writeEnd.Get()) ? 0 : 1);
        }
    }
    ~Child() {
        if (m_pid > 0) {
            Kill();
            (void)Succeeded();
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Waits for one byte of report; false when the child has ended and all was read.
    [[nodiscard]] bool ReadReport() const {
        char report = 0;
        return read(m_reports.Get(), &report, 1) == 1;
    }

    void Kill() const { (void)kill(m_pid, SIGKILL); }

    // True if it ended by itself and its work was good.
    bool Succeeded() {
        int status = -1;
        (void)waitpid(std::exchange(m_pid, -1), &status, 0);
        return status == 0;
    }

  private:
    ScopedFd m_reports;
    pid_t m_pid = -1;
};

TEST_F(AgentDatabaseTest, NoEventIsLostWhoseWriteHadReturnedWhenTheProcessWasKilled) {
    constexpr unsigned kRounds = 24;
    constexpr unsigned kEvents = 500;
    const auto seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (unsigned round = 0; round < kRounds; ++round) {
        // Early as well as late, so that the making of the database is met often enough.
        const auto killAfter = random() % std::array{3U, 25U, kEvents}.at(round % 3);
        Child child([&](int reportFd) {
            AgentDatabase database = Open();
            for (unsigned number = 0; number < kEvents; ++number) {
                if (!database.EventWrite(EventWithData(std::to_string(number))) ||
                    write(reportFd, "w", 1) != 1) {
                    return false;
                }
            }
            return true;
        });
        std::size_t returned = 0;
        while (returned < killAfter && child.ReadReport()) {
            ++returned;
        }
        // Chooses the moment inside the next write, which takes some hundred microseconds.
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 600));
        child.Kill();
        while (child.ReadReport()) {
            ++returned;
        }

        AgentDatabase database = Open();
        const std::vector<std::string> data = EventData(database);
        ASSERT_GE(data.size(), returned);
        ASSERT_LE(data.size(), returned + 1);
        for (std::size_t index = 0; index < data.size(); ++index) {
            ASSERT_EQ(data[index], std::to_string(index));
        }
        ASSERT_TRUE(database.EventWrite(EventWithData("usable")));
        ASSERT_THAT(m_log.Lines(), IsEmpty());
        std::filesystem::remove_all(m_file.parent_path());
    }
}

TEST_F(AgentDatabaseTest, TwoProcessesThatReplaceADamagedDatabaseAndWriteAtOnceLoseNothing) {
    constexpr int kRounds = 6;
    constexpr int kEvents = 15;
    SqliteTuning patient;
    patient.busyTimeout = 60'000;
    const auto writer = [&](const std::string& name) {
        return [=, this](int) {
            AgentDatabase database = Open(patient);
            bool good = true;
            for (int number = 0; number < kEvents && good; ++number) {
                good = database.EventWrite(EventWithData(name)) &&
                       database.SettingStore(name, std::to_string(number));
            }
            return good;
        };
    };
    for (int round = 0; round < kRounds; ++round) {
        (void)m_scratch.Write("plugins/zelka_core/zelk_agent.db", std::string(10'000, 'x'));
        Child a(writer("a"));
        Child b(writer("b"));
        EXPECT_TRUE(a.Succeeded());
        EXPECT_TRUE(b.Succeeded());

        AgentDatabase database = Open();
        EXPECT_EQ(PutAside().size(), 1U);
        EXPECT_EQ(EventData(database).size(), 2U * kEvents);
        for (const char* name : {"a", "b"}) {
            std::string value;
            EXPECT_TRUE(database.SettingRetrieve(name, value));
            EXPECT_EQ(value, std::to_string(kEvents - 1));
        }
        std::filesystem::remove_all(m_file.parent_path());
    }
}

}  // namespace
}  // namespace ZelkaCore
