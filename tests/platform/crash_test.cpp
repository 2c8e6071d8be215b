#include "platform/crash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <regex>
#include <string>

#include "platform/linux/crash/minidump_format.h"
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

namespace fs = std::filesystem;
namespace minidump = crash::minidump;
using testing::AllOf;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;

struct Ended {
    int status = 0;  // as waitpid() tells it
    std::string output;

    [[nodiscard]] int Signal() const { return WIFSIGNALED(status) ? WTERMSIG(status) : 0; }
};

// Runs a program to its end; what it writes to either stream is its output.
Ended RunProgram(const std::string& command) {
    FILE* pipe = popen(("exec " + command + " 2>&1").c_str(), "re");  // NOLINT(cert-env33-c)
    Ended ended;
    for (int c = 0; (c = std::fgetc(pipe)) != EOF;) {
        ended.output.push_back(static_cast<char>(c));
    }
    ended.status = pclose(pipe);
    return ended;
}

template <typename Record>
Record At(const std::string& bytes, std::size_t offset) {
    Record record{};
    if (offset + sizeof record <= bytes.size()) {
        std::memcpy(&record, bytes.data() + offset, sizeof record);
    }
    return record;
}

class CrashDump : public testing::Test {
  protected:
    [[nodiscard]] Ended Crash(const std::string& way) const {
        return RunProgram(CRASH_CHILD " " + File().string() + " " + way);
    }

    [[nodiscard]] fs::path Folder() const { return m_scratch.Path() / "work/diag"; }
    [[nodiscard]] fs::path File() const { return Folder() / "agent.mdmp"; }

    // The streams of the dump, as a reader of the format finds them; none if there is no dump.
    [[nodiscard]] std::map<std::uint32_t, std::string> Streams() const {
        const std::string bytes = ReadFile(File());
        std::map<std::uint32_t, std::string> streams;
        const auto header = At<minidump::Header>(bytes, 0);
        for (std::uint32_t i = 0; i < header.numberOfStreams; ++i) {
            const auto entry = At<minidump::Directory>(bytes, header.streamDirectoryRva + i * 12);
            streams[entry.streamType] = bytes.substr(entry.location.rva, entry.location.dataSize);
        }
        EXPECT_TRUE(bytes.empty() || header.signature == minidump::kSignature);
        return streams;
    }
    [[nodiscard]] minidump::Exception Exception() const {
        return At<minidump::ExceptionStream>(Streams()[minidump::kExceptionStream], 0).exception;
    }
    [[nodiscard]] std::uint32_t ThreadCount() const {
        return At<std::uint32_t>(Streams()[minidump::kThreadListStream], 0);
    }
    [[nodiscard]] long FileCount() const {
        return std::distance(fs::directory_iterator(Folder()), {});
    }

    const ScratchFolder m_scratch;
};

TEST_F(CrashDump, IsPrivateAndTellsOfTheFault) {
    using std::string_literals::operator""s;
    EXPECT_EQ(Crash("main").Signal(), SIGSEGV);
    EXPECT_EQ(fs::status(File()).permissions(), fs::perms{0600});
    EXPECT_EQ(fs::status(Folder()).permissions(), fs::perms{0700});
    EXPECT_NE(Exception().exceptionAddress, 0U);
    EXPECT_EQ(Exception().exceptionAddress % 4096, 0U);
    EXPECT_EQ(Streams()[minidump::kCommentStreamW], "z\0\xFC\0n\0d\0e\0l\0\0\0"s);
    EXPECT_THAT(Streams()[minidump::kLinuxMapsStream], HasSubstr("crash_child"));
}

TEST_F(CrashDump, FollowsEverySignalOfAFaultInThePlaceOfTheOlderOneAndTheProcessDiesOfIt) {
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS}) {
        EXPECT_EQ(Crash(std::to_string(signal)).Signal(), signal);
        EXPECT_EQ(Exception().exceptionCode, static_cast<std::uint32_t>(signal));
        EXPECT_EQ(FileCount(), 1);
    }
}

TEST_F(CrashDump, ShowsADebuggerWhereItsThreadsWere) {
    const struct {
        const char* way;
        int signal;
        const char* frame;
        int count;  // of threads in that frame
    } cases[] = {
        {"main", SIGSEGV, "frame #0:.*TouchLockedPage.* at crash_child.cpp", 1},
        {"thread", SIGSEGV, "frame #0:.*TouchLockedPage.* at crash_child.cpp", 1},
        {"abort", SIGABRT, "GiveUp", 1},
        {"overflow", SIGSEGV, "frame #15:.*RecurseForEver", 1},
        // ThreadSanitizer makes the threads itself, without alternate stacks.
        {kThreadSanitizer ? "overflow" : "thread-overflow", SIGSEGV, "frame #15:.*RecurseForEver",
         1},
        {"many-threads", SIGSEGV, "ParkedWorker\\(", 200},
    };
    const bool hasDebugger = RunProgram("lldb --version").status == 0;
    for (const auto& item : cases) {
        SCOPED_TRACE(item.way);
        EXPECT_EQ(Crash(item.way).Signal(), item.signal);
        if (hasDebugger) {
            const std::string shown =
                RunProgram("lldb --no-lldbinit -b -o 'thread backtrace -c 20 all' -c " +
                           File().string() + " " CRASH_CHILD)
                    .output;
            const std::regex frame(item.frame);
            EXPECT_GE(std::distance(std::sregex_iterator(shown.begin(), shown.end(), frame), {}),
                      item.count)
                << shown;
        }
    }
    if (!hasDebugger) {
        GTEST_SKIP() << "lldb is not installed: nobody has tried to open the dumps";
    }
}

TEST_F(CrashDump, IsWholeOrTheSmallestOneAndOnlyOfTheProcessThatIsCovered) {
    constexpr int kAny = -1;
    constexpr bool kShadowMemory = kAddressSanitizer || kThreadSanitizer;  // terabytes
    const struct {
        const char* way;
        int signal;
        unsigned threads;  // 0: there is no dump
    } cases[] = {
        {"all-at-once", SIGSEGV, 17},
        {"no-ptrace", SIGSEGV, 1},
        {"no-clone", SIGSEGV, 1},
        {kShadowMemory ? "main" : "no-space full", SIGSEGV, 1},
        // AddressSanitizer gives up when it finds no descriptor.
        {"no-descriptors", kAddressSanitizer ? kAny : SIGSEGV, 1},
        {"fault-in-filter", SIGSEGV, 0},
        {"forked-child", 0, 0},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(item.way);
        const Ended ended = Crash(item.way);
        EXPECT_TRUE(item.signal == kAny || ended.Signal() == item.signal) << ended.status;
        EXPECT_TRUE(item.signal != 0 || ended.status == 0) << ended.status;
        EXPECT_EQ(FileCount(), item.threads == 0 ? 0 : 1);
        const unsigned own = kThreadSanitizer ? 1 : 0;  // a thread of the sanitizer's
        EXPECT_THAT(ThreadCount(), AllOf(Ge(item.threads), Le(item.threads + own)));
        EXPECT_EQ(Streams().count(minidump::kMemory64ListStream), 0U);
        fs::remove(File());
    }
}

TEST_F(CrashDump, LeavesNothingWhereItCannotBeWrittenAndTheProcessStillDiesOfTheFault) {
    EXPECT_EQ(Crash("folder-gone").Signal(), SIGSEGV);
    EXPECT_FALSE(fs::exists(Folder()));

    (void)m_scratch.Write("work/diag", "");  // a file in place of the folder
    const Ended ended = Crash("main");
    EXPECT_THAT(ended.output, HasSubstr("Crash dumps cannot be written to '" + File().string()));
    EXPECT_EQ(ended.Signal(), kAddressSanitizer || kThreadSanitizer ? 0 : SIGSEGV);
    EXPECT_TRUE(fs::is_regular_file(Folder()));
}

}  // namespace
