#include "platform/crash.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "platform/linux/crash/minidump_format.h"
#include "platform/scoped_fd.h"
#include "tests/support/scratch_folder.h"

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif
#if defined(__SANITIZE_THREAD__)
constexpr bool kThreadSanitizer = true;
#else
constexpr bool kThreadSanitizer = false;
#endif

namespace {

namespace minidump = crash::minidump;
using testing::HasSubstr;

struct Ended {
    int status = 0;  // as waitpid() tells it
    std::string output;

    [[nodiscard]] int Signal() const { return WIFSIGNALED(status) ? WTERMSIG(status) : 0; }
};

// Runs a program to its end; what it writes to either stream is its output. Nothing if there is no
// such program.
std::optional<Ended> RunProgram(std::vector<std::string> words) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return std::nullopt;
    }
    const ScopedFd reader(ends[0]);
    ScopedFd writer(ends[1]);
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    (void)posix_spawn_file_actions_init(&actions);
    (void)posix_spawn_file_actions_adddup2(&actions, writer.Get(), STDOUT_FILENO);
    (void)posix_spawn_file_actions_adddup2(&actions, writer.Get(), STDERR_FILENO);
    pid_t child = 0;
    const int code =
        posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    (void)posix_spawn_file_actions_destroy(&actions);
    if (code != 0) {
        return std::nullopt;
    }
    writer.Reset();
    Ended ended;
    std::array<char, 4096> buffer{};
    for (ssize_t n = 0; (n = read(reader.Get(), buffer.data(), buffer.size())) > 0;) {
        ended.output.append(buffer.data(), static_cast<std::size_t>(n));
    }
    (void)waitpid(child, &ended.status, 0);
    return ended;
}

// A dump as a reader of the format finds it, by stream.
class Dump {
  public:
    explicit Dump(const std::filesystem::path& file) : m_bytes(ReadFile(file)) {
        const auto header = At<minidump::Header>(0);
        if (header.signature != minidump::kSignature) {
            return;
        }
        for (std::uint32_t i = 0; i < header.numberOfStreams; ++i) {
            const auto entry = At<minidump::Directory>(header.streamDirectoryRva + i * 12);
            m_streams[entry.streamType] = entry.location;
        }
    }

    [[nodiscard]] bool IsValid() const { return !m_streams.empty(); }
    [[nodiscard]] bool Has(minidump::StreamType type) const { return m_streams.contains(type); }
    [[nodiscard]] std::string Bytes(minidump::StreamType type) const {
        const auto place = m_streams.at(type);
        return m_bytes.substr(place.rva, place.dataSize);
    }
    [[nodiscard]] std::uint32_t ThreadCount() const {
        return At<std::uint32_t>(m_streams.at(minidump::kThreadListStream).rva);
    }
    [[nodiscard]] minidump::ExceptionStream Exception() const {
        return At<minidump::ExceptionStream>(m_streams.at(minidump::kExceptionStream).rva);
    }

  private:
    template <typename Record>
    [[nodiscard]] Record At(std::size_t offset) const {
        Record record{};
        if (offset + sizeof record <= m_bytes.size()) {
            std::memcpy(&record, m_bytes.data() + offset, sizeof record);
        }
        return record;
    }

    std::string m_bytes;
    std::map<std::uint32_t, minidump::Location> m_streams;
};

class CrashDump : public testing::Test {
  protected:
    [[nodiscard]] Ended Crash(const std::string& way, bool full = false) const {
        std::vector<std::string> words{CRASH_CHILD, File().string(), way};
        if (full) {
            words.emplace_back("full");
        }
        const auto ended = RunProgram(std::move(words));
        EXPECT_TRUE(ended) << "cannot run " << CRASH_CHILD;
        return ended.value_or(Ended{});
    }

    // What the debugger says of the dump; nothing if there is no debugger.
    [[nodiscard]] std::optional<std::string> Debug(const std::vector<std::string>& commands) const {
        std::vector<std::string> words{"lldb", "--no-lldbinit", "-b", "-c", File(), CRASH_CHILD};
        for (const std::string& command : commands) {
            words.insert(words.end(), {"-o", command});
        }
        const auto ended = RunProgram(std::move(words));
        return ended ? std::optional(ended->output) : std::nullopt;
    }

    [[nodiscard]] std::filesystem::path Folder() const { return m_scratch.Path() / "work/diag"; }
    [[nodiscard]] std::filesystem::path File() const { return Folder() / "agent.mdmp"; }

    // The dump is the folder's only file.
    [[nodiscard]] bool OnlyTheDumpIsLeft() const {
        const auto files = std::filesystem::directory_iterator(Folder());
        return std::distance(begin(files), end(files)) == 1 && std::filesystem::exists(File());
    }

  private:
    ScratchFolder m_scratch;
};

#define SKIP_WITHOUT_DEBUGGER(output)                                                \
    if (!(output)) {                                                                 \
        GTEST_SKIP() << "lldb is not installed: nobody has tried to open the dumps"; \
    }

#define SKIP_WITH_SHADOW_MEMORY()                                                 \
    if (kAddressSanitizer || kThreadSanitizer) {                                  \
        GTEST_SKIP() << "a sanitizer's shadow memory makes all memory terabytes"; \
    }

TEST_F(CrashDump, IsPrivateAndTellsOfTheFaultAndReplacesTheOlderOne) {
    for (int run = 0; run < 2; ++run) {
        ASSERT_EQ(Crash("main").Signal(), SIGSEGV);
        ASSERT_TRUE(OnlyTheDumpIsLeft());
    }
    struct stat rights {};
    ASSERT_EQ(stat(File().c_str(), &rights), 0);
    EXPECT_EQ(rights.st_mode & 07777, mode_t{0600});
    ASSERT_EQ(stat(Folder().c_str(), &rights), 0);
    EXPECT_EQ(rights.st_mode & 07777, mode_t{0700});

    const Dump dump(File());
    ASSERT_TRUE(dump.IsValid());
    EXPECT_EQ(dump.Exception().exception.exceptionCode, std::uint32_t{SIGSEGV});
    EXPECT_EQ(dump.Exception().exception.exceptionAddress % 4096, 0U);
    const std::u16string comment(u"z\u00fcndel");
    const std::string stored = dump.Bytes(minidump::kCommentStreamW);
    ASSERT_EQ(stored.size(), (comment.size() + 1) * sizeof(char16_t));
    EXPECT_EQ(std::memcmp(stored.data(), comment.c_str(), stored.size()), 0);
    EXPECT_THAT(dump.Bytes(minidump::kLinuxMapsStream), HasSubstr("crash_child"));
}

TEST_F(CrashDump, FollowsEverySignalOfAFaultAndTheProcessDiesOfIt) {
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS}) {
        std::filesystem::remove_all(Folder());
        EXPECT_EQ(Crash(std::to_string(signal)).Signal(), signal);
        const Dump dump(File());
        ASSERT_TRUE(dump.IsValid()) << signal;
        EXPECT_EQ(dump.Exception().exception.exceptionCode, static_cast<std::uint32_t>(signal));
    }
}

TEST_F(CrashDump, ShowsTheFaultingFunctionAndLineInADebugger) {
    for (const std::string way : {"main", "thread"}) {
        const Ended ended = Crash(way);
        ASSERT_EQ(ended.Signal(), SIGSEGV);
        const auto shown = Debug({"bt all"});
        SKIP_WITHOUT_DEBUGGER(shown);
        const std::string line = ended.output.substr(0, ended.output.find('\n'));
        EXPECT_THAT(*shown, HasSubstr("SIGSEGV"));
        EXPECT_THAT(*shown, testing::ContainsRegex(
                                "frame #0.*TouchLockedPage.*crash_child.cpp:" + line + ":"));
        EXPECT_GE(Dump(File()).ThreadCount(), way == "main" ? 1U : 2U);
    }
}

TEST_F(CrashDump, ShowsWhoAborted) {
    ASSERT_EQ(Crash("abort").Signal(), SIGABRT);
    const auto shown = Debug({"bt all"});
    SKIP_WITHOUT_DEBUGGER(shown);
    EXPECT_THAT(*shown, HasSubstr("GiveUp"));
}

TEST_F(CrashDump, FollowsAStackOverflowOfTheMainAndOfAnyOtherThread) {
    for (const std::string way : {"overflow", "thread-overflow"}) {
        if (kThreadSanitizer && way == "thread-overflow") {
            GTEST_SKIP() << "ThreadSanitizer makes the threads itself, without alternate stacks";
        }
        ASSERT_EQ(Crash(way).Signal(), SIGSEGV) << way;
        const auto shown = Debug({"bt 20"});
        SKIP_WITHOUT_DEBUGGER(shown);
        EXPECT_THAT(*shown, testing::ContainsRegex("frame #15.*RecurseForEver")) << way;
    }
}

TEST_F(CrashDump, ShowsEveryOneOfManyThreads) {
    ASSERT_EQ(Crash("many-threads").Signal(), SIGSEGV);
    EXPECT_GE(Dump(File()).ThreadCount(), 201U);
    const auto shown = Debug({"bt all"});
    SKIP_WITHOUT_DEBUGGER(shown);
    std::size_t parked = 0;
    bool counted = false;
    std::istringstream lines(*shown);
    for (std::string line; std::getline(lines, line);) {
        counted = counted && line.find("thread #") == std::string::npos;
        if (!counted && line.find("ParkedWorker") != std::string::npos) {
            counted = true;
            ++parked;
        }
    }
    EXPECT_EQ(parked, 200U);
}

TEST_F(CrashDump, HoldsTheHeapInItsFullForm) {
    SKIP_WITH_SHADOW_MEMORY();
    ASSERT_EQ(Crash("main", true).Signal(), SIGSEGV);
    EXPECT_TRUE(OnlyTheDumpIsLeft());
    const auto shown = Debug({"bt all", "target variable *g_crumb"});
    SKIP_WITHOUT_DEBUGGER(shown);
    EXPECT_THAT(*shown, HasSubstr("number = 4711"));
    EXPECT_THAT(*shown, HasSubstr("breadcrumb"));
    EXPECT_THAT(*shown, HasSubstr("TouchLockedPage"));
}

TEST_F(CrashDump, IsWrittenOnceAndWholeWhenManyThreadsFaultAtOnce) {
    ASSERT_EQ(Crash("all-at-once").Signal(), SIGSEGV);
    EXPECT_TRUE(OnlyTheDumpIsLeft());
    EXPECT_EQ(Dump(File()).ThreadCount(), kThreadSanitizer ? 18U : 17U);
}

TEST_F(CrashDump, TellsOfTheFaultingThreadAloneWhereTheSystemAllowsNoMore) {
    for (const std::string way : {"no-ptrace", "no-clone"}) {
        ASSERT_EQ(Crash(way).Signal(), SIGSEGV) << way;
        ASSERT_TRUE(OnlyTheDumpIsLeft()) << way;
        EXPECT_EQ(Dump(File()).ThreadCount(), 1U) << way;
        std::filesystem::remove(File());
    }
}

TEST_F(CrashDump, IsWrittenWhenAllDescriptorsAreInUse) {
    const int signal = Crash("no-descriptors").Signal();
    if (!kAddressSanitizer) {  // which gives up when it finds no descriptor
        EXPECT_EQ(signal, SIGSEGV);
    }
    EXPECT_TRUE(Dump(File()).IsValid());
}

TEST_F(CrashDump, IsTheSmallFormWhereTheFullOneFindsNoSpace) {
    SKIP_WITH_SHADOW_MEMORY();
    ASSERT_EQ(Crash("no-space-for-all", true).Signal(), SIGSEGV);
    EXPECT_TRUE(OnlyTheDumpIsLeft());
    const Dump dump(File());
    ASSERT_TRUE(dump.IsValid());
    EXPECT_FALSE(dump.Has(minidump::kMemory64ListStream));
}

TEST_F(CrashDump, IsNotWrittenOnceANullFilterHasEndedTheCover) {
    EXPECT_EQ(Crash("uncovered").Signal(), kAddressSanitizer || kThreadSanitizer ? 0 : SIGSEGV);
    EXPECT_TRUE(std::filesystem::is_empty(Folder()));
}

TEST_F(CrashDump, IsNotWrittenForAForkedChild) {
    EXPECT_EQ(Crash("forked-child").status, 0);
    EXPECT_TRUE(std::filesystem::is_empty(Folder()));
}

TEST_F(CrashDump, AFaultInTheFilterEndsTheProcess) {
    EXPECT_EQ(Crash("fault-in-filter").Signal(), SIGSEGV);
    EXPECT_TRUE(std::filesystem::is_empty(Folder()));
}

TEST_F(CrashDump, LeavesNothingWhereItCannotBeWrittenAndTheProcessStillDiesOfTheFault) {
    EXPECT_EQ(Crash("folder-gone").Signal(), SIGSEGV);
    EXPECT_FALSE(std::filesystem::exists(Folder()));

    std::ofstream(Folder()).close();  // a file in place of the folder
    const Ended ended = Crash("main");
    EXPECT_THAT(ended.output, HasSubstr("Crash dumps cannot be written to '" + File().string()));
    EXPECT_EQ(ended.Signal(), kAddressSanitizer || kThreadSanitizer ? 0 : SIGSEGV);
    EXPECT_TRUE(std::filesystem::is_regular_file(Folder()));
}

}  // namespace
