#include "platform/crash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <barrier>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <regex>
#include <string>
#include <thread>

#include "platform/linux/crash/minidump_format.h"
#include "tests/support/scratch_folder.h"
#include "zelka_core/system/crash_handler.h"

// Ways to fault. The debugger does not tell the names of what is in an unnamed namespace.
namespace faults {

// Memory that nobody may touch. A null pointer would be a sanitizer's find.
volatile int* g_lockedPage = nullptr;

[[gnu::noinline]] void TouchLockedPage() {
    *g_lockedPage = 1;
}

[[gnu::noinline]] int RecurseForEver(int depth) {
    volatile char room[512];
    room[0] = 1;
    return g_lockedPage == nullptr ? 0 : RecurseForEver(depth + 1) + room[0];
}

[[gnu::noinline]] void GiveUp() {
    std::abort();
}

[[gnu::noinline]] void ParkedWorker(std::barrier<>& started, std::mutex& never) {
    started.arrive_and_wait();
    const std::lock_guard lock(never);
}

// Starts threads that wait from then on.
void Park(int count) {
    static std::mutex never;
    static std::barrier<> started(count + 1);
    never.lock();
    for (int i = 0; i < count; ++i) {
        std::thread([] { ParkedWorker(started, never); }).detach();
    }
    started.arrive_and_wait();
}

void FaultInManyThreadsAtOnce() {
    constexpr int kCount = 16;
    std::barrier<> started(kCount);
    std::array<std::jthread, kCount> threads;
    for (std::jthread& thread : threads) {
        thread = std::jthread([&] {
            started.arrive_and_wait();
            TouchLockedPage();
        });
    }
}

// From here on the system answers one kind of call with an error code, while another thread waits.
void Refuse(unsigned systemCall, unsigned code) {
    Park(1);
    std::array<sock_filter, 4> rules{
        {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
         BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, systemCall, 0, 1),
         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | code),
         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)}};
    const sock_fprog program{.len = rules.size(), .filter = rules.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) != 0) {
        _exit(3);
    }
}

void Limit(__rlimit_resource resource, rlim_t limit) {
    const rlimit both{.rlim_cur = limit, .rlim_max = limit};
    (void)setrlimit(resource, &both);
}

void UseAllDescriptors() {
    Limit(RLIMIT_NOFILE, 64);
    while (dup(STDOUT_FILENO) >= 0) {
    }
}

void LimitFiles() {
    (void)signal(SIGXFSZ, SIG_IGN);
    Limit(RLIMIT_FSIZE, 2 << 20);
}

// Returns in the child, and ends the parent once the child has died of its fault.
void Fork() {
    if (fork() != 0) {
        int status = 0;
        (void)wait(&status);
        _exit(WTERMSIG(status) == SIGSEGV ? 0 : 4);
    }
}

std::int32_t FaultAgain(EXCEPTION_POINTERS*) {
    TouchLockedPage();
    return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace faults

namespace {

namespace fs = std::filesystem;
namespace minidump = crash::minidump;
using namespace faults;
using testing::HasSubstr;

constexpr bool kSanitizer = *SANITIZERS != '\0';
constexpr bool kThreadSanitizer = std::string_view(SANITIZERS) == "thread";

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
    // The signal that a child process dies of by a fault after `before`, or -(exit status).
    [[nodiscard]] int Crash(const std::function<void()>& before, bool isFull = false) const {
        const pid_t child = fork();
        if (child == 0) {
            Limit(RLIMIT_CORE, 0);
            (void)alarm(120);  // a hang ends as another signal than the one that is expected
            (void)!std::freopen((m_scratch.Path() / "errors").c_str(), "w", stderr);
            g_lockedPage = static_cast<volatile int*>(
                mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
            ZelkaCore::InitCrashHandler(File().wstring(), L"z\u00fcndel", isFull);
            before();
            TouchLockedPage();
            _exit(0);
        }
        int status = 0;
        (void)waitpid(child, &status, 0);
        return WIFSIGNALED(status) ? WTERMSIG(status) : -WEXITSTATUS(status);
    }

    // What a debugger shows of the dump's threads; nothing if there is no debugger.
    [[nodiscard]] std::string Backtraces() const {
        const std::string shown = (m_scratch.Path() / "shown").string();
        const std::string command = "lldb --no-lldbinit -b -o 'thread backtrace -c 20 all' -c " +
                                    File().string() + " " +
                                    fs::read_symlink("/proc/self/exe").string() + " >" + shown;
        (void)!std::system((command + " 2>/dev/null").c_str());  // NOLINT(cert-env33-c)
        return ReadFile(shown);
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

TEST_F(CrashDump, FollowsEverySignalOfAFaultInThePlaceOfTheOlderOneAndIsPrivate) {
    using std::string_literals::operator""s;
    for (const int signal : {SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS, SIGSEGV}) {
        EXPECT_EQ(Crash([=] { (void)raise(signal); }), signal);
        EXPECT_EQ(Exception().exceptionCode, static_cast<std::uint32_t>(signal));
        EXPECT_EQ(FileCount(), 1);
    }
    EXPECT_EQ(Crash([] {}), SIGSEGV);
    EXPECT_NE(Exception().exceptionAddress, 0U);
    EXPECT_EQ(Exception().exceptionAddress % 4096, 0U);
    EXPECT_EQ(Streams()[minidump::kCommentStreamW], "z\0\xFC\0n\0d\0e\0l\0\0\0"s);
    EXPECT_THAT(Streams()[minidump::kLinuxMapsStream], HasSubstr("platform_tests"));
    EXPECT_EQ(fs::status(File()).permissions(), fs::perms{0600});
    EXPECT_EQ(fs::status(Folder()).permissions(), fs::perms{0700});
}

TEST_F(CrashDump, ShowsADebuggerWhereItsThreadsWere) {
    constexpr const char* kTouch = "frame #0:.*TouchLockedPage.* at crash_test.cpp";
    constexpr const char* kDeep = "frame #15:.*RecurseForEver";
    const std::function<void()> overflow = [] { (void)RecurseForEver(0); };
    const struct {
        std::function<void()> before;
        const char* frame;
        int signal;
        int count;  // of threads in that frame
    } cases[] = {
        {[] {}, kTouch, SIGSEGV, 1},
        {[] { std::thread(TouchLockedPage).join(); }, kTouch, SIGSEGV, 1},
        {GiveUp, "GiveUp", SIGABRT, 1},
        {overflow, kDeep, SIGSEGV, 1},
        // ThreadSanitizer makes the threads itself, without alternate stacks.
        {kThreadSanitizer ? overflow : [=] { std::thread(overflow).join(); }, kDeep, SIGSEGV, 1},
        {[] { Park(200); }, "ParkedWorker\\(", SIGSEGV, 200},
    };
    bool isShown = true;
    for (const auto& item : cases) {
        EXPECT_EQ(Crash(item.before), item.signal);
        const std::string shown = Backtraces();
        fs::remove(File());
        const std::regex frame(item.frame);
        const auto count =
            std::distance(std::sregex_iterator(shown.begin(), shown.end(), frame), {});
        EXPECT_TRUE(shown.empty() || count >= item.count) << item.frame << " in " << shown;
        isShown = isShown && !shown.empty();
    }
    if (!isShown) {
        GTEST_SKIP() << "lldb is not installed: nobody has tried to open the dumps";
    }
}

TEST_F(CrashDump, IsWholeOrTheSmallestOneAndOnlyOfTheProcessThatIsCovered) {
    const struct {
        const char* title;
        std::function<void()> before;
        int ended;
        unsigned threads;  // 0: there is no dump
        bool isFull = false;
    } cases[] = {
        {"faults at once", FaultInManyThreadsAtOnce, SIGSEGV, 17},
        {"no ptrace", [] { Refuse(SYS_ptrace, EPERM); }, SIGSEGV, 1},
        {"no clone", [] { Refuse(SYS_clone, EAGAIN); }, SIGSEGV, 1},
        // A sanitizer's shadow memory makes all memory terabytes.
        {"no space", kSanitizer ? +[] {} : LimitFiles, SIGSEGV, 1, !kSanitizer},
        // AddressSanitizer gives up when it finds no descriptor.
        {"no descriptors", kSanitizer ? +[] {} : UseAllDescriptors, SIGSEGV, 1},
        {"fault in the filter", [] { (void)SetUnhandledExceptionFilter(FaultAgain); }, SIGSEGV, 0},
        {"forked child", Fork, 0, 0},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(item.title);
        EXPECT_EQ(Crash(item.before, item.isFull), item.ended);
        EXPECT_EQ(FileCount(), item.threads == 0 ? 0 : 1);
        const unsigned others = kThreadSanitizer ? 2 : 0;  // at most: threads of its own
        EXPECT_LE(ThreadCount() - item.threads, others) << ThreadCount();
        EXPECT_EQ(Streams().count(minidump::kMemory64ListStream), 0U);
        fs::remove(File());
    }
}

TEST_F(CrashDump, LeavesNothingWhereItCannotBeWrittenAndTheProcessStillDiesOfTheFault) {
    EXPECT_EQ(Crash([this] { fs::remove_all(Folder()); }), SIGSEGV);
    EXPECT_FALSE(fs::exists(Folder()));

    (void)m_scratch.Write("work/diag", "");  // a file in place of the folder
    EXPECT_TRUE(Crash([] {}) == SIGSEGV || kSanitizer);
    EXPECT_THAT(ReadFile(m_scratch.Path() / "errors"),
                HasSubstr("Crash dumps cannot be written to '" + File().string()));
    EXPECT_TRUE(fs::is_regular_file(Folder()));
}

}  // namespace
