// A program that faults: crash_child DUMP-FILE WAY [full]. A way is the number of a signal or the
// name of what comes before a fault of the main thread.

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wx/init.h>

#include <array>
#include <barrier>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/crash.h"
#include "platform/process_setup.h"
#include "zelka_core/system/crash_handler.h"
#include "zelka_core/text.h"

namespace crash_child {

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
    std::vector<std::jthread> threads;
    for (int i = 0; i < kCount; ++i) {
        threads.emplace_back([&] {
            started.arrive_and_wait();
            TouchLockedPage();
        });
    }
}

// From here on the system answers one kind of call with an error code.
void Refuse(unsigned systemCall, unsigned code) {
    std::array<sock_filter, 4> rules{
        {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
         BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, systemCall, 0, 1),
         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | code),
         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)}};
    const sock_fprog program{.len = rules.size(), .filter = rules.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) != 0) {
        std::exit(3);
    }
}

void RefuseBesideAnotherThread(unsigned systemCall, unsigned code) {
    Park(1);
    Refuse(systemCall, code);
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
    const pid_t child = fork();
    if (child != 0) {
        int status = 0;
        (void)waitpid(child, &status, 0);
        std::exit(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV ? 0 : 4);
    }
}

std::int32_t FaultAgain(EXCEPTION_POINTERS* fault) {
    (void)fault;
    TouchLockedPage();
    return EXCEPTION_EXECUTE_HANDLER;
}

void Prepare(const std::string& way, const std::filesystem::path& dumpFile) {
    const std::map<std::string, std::function<void()>> ways{
        {"main", [] {}},
        {"thread", [] { std::thread(TouchLockedPage).join(); }},
        {"overflow", [] { (void)RecurseForEver(0); }},
        {"thread-overflow", [] { std::thread(RecurseForEver, 0).join(); }},
        {"abort", GiveUp},
        {"many-threads", [] { Park(200); }},
        {"all-at-once", FaultInManyThreadsAtOnce},
        {"no-ptrace", [] { RefuseBesideAnotherThread(SYS_ptrace, EPERM); }},
        {"no-clone", [] { RefuseBesideAnotherThread(SYS_clone, EAGAIN); }},
        {"no-descriptors", UseAllDescriptors},
        {"no-space", LimitFiles},
        {"fault-in-filter", [] { (void)SetUnhandledExceptionFilter(FaultAgain); }},
        {"forked-child", Fork},
        {"folder-gone", [&] { std::filesystem::remove_all(dumpFile.parent_path()); }},
    };
    if (const auto found = ways.find(way); found != ways.end()) {
        found->second();
    } else {
        (void)raise(std::stoi(way));
    }
}

}  // namespace crash_child

int main(int argc, char** argv) {
    crash_child::Limit(RLIMIT_CORE, 0);
    (void)alarm(120);  // a hang ends as another signal than the one that is expected
    PinTextEncoding();
    const wxInitializer framework;
    crash_child::g_lockedPage = static_cast<volatile int*>(
        mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ZelkaCore::InitCrashHandler(ZelkaCore::FromUtf8(argv[1]), ZelkaCore::FromUtf8("z\u00fcndel"),
                                argc > 3);
    crash_child::Prepare(argv[2], argv[1]);
    crash_child::TouchLockedPage();
    return 0;
}
