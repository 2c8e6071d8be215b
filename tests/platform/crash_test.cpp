#include "platform/crash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <barrier>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <iterator>
#include <mutex>
#include <regex>
#include <string>
#include <thread>

#include "platform/minidump_format.h"
#include "tests/platform/crash_case.h"

// Ways to fault. The debugger does not tell the names of what is in an unnamed namespace.
namespace faults {

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

namespace minidump = crash::minidump;
using namespace faults;
using testing::HasSubstr;

constexpr bool kThreadSanitizer = std::string_view(SANITIZERS) == "thread";

TEST_F(CrashDump, FollowsEverySignalOfAFaultInThePlaceOfTheOlderOneAndIsPrivate) {
    for (const int signal : {SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS, SIGSEGV}) {
        EXPECT_EQ(Crash([=] { (void)raise(signal); }), signal);
        const auto report = Report();
        EXPECT_EQ(report.signal, static_cast<std::uint32_t>(signal));
        EXPECT_THAT(report.fault, HasSubstr(report.signalName + ": raised by the process itself"));
        EXPECT_EQ(FileCount(), 1);
    }
    EXPECT_EQ(Crash([] {}), SIGSEGV);
    EXPECT_NE(Exception().exceptionAddress, 0U);
    EXPECT_EQ(Exception().exceptionAddress % 4096, 0U);
    const auto report = Report();
    EXPECT_EQ(report.application, "z\u00fcndel");
    EXPECT_THAT(report.fault, HasSubstr("SIGSEGV: what was done is not allowed at 0x"));
    EXPECT_THAT(report.module, HasSubstr("platform_tests"));
    EXPECT_LT(std::abs(report.time - std::time(nullptr)), 100);
    EXPECT_THAT(ReadFile(m_scratch.Path() / "errors"),
                HasSubstr("; the crash dump is " + File().string() + "\n"));
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
