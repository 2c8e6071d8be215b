// A program that faults in the way its arguments ask for:
// crash_child DUMP-FILE WAY [full]. Before a fault whose place matters it prints the line.

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
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/crash.h"
#include "platform/process_setup.h"
#include "zelka_core/system/crash_handler.h"
#include "zelka_core/text.h"

namespace crash_child {

struct Crumb {
    int number = 0;
    std::string word;
};

Crumb* g_crumb = nullptr;  // on the heap
volatile int* g_lockedPage = nullptr;

// Memory that nobody may touch. A null pointer would be a sanitizer's find.
volatile int* LockedPage() {
    return static_cast<volatile int*>(
        mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
}

[[gnu::noinline]] void TouchLockedPage() {
    constexpr int kFaultLine = __LINE__ + 3;
    std::printf("%d\n", kFaultLine);
    (void)std::fflush(stdout);
    *g_lockedPage = 1;
    std::puts("survived");
}

[[gnu::noinline]] int RecurseForEver(int depth) {
    volatile char room[512];
    room[0] = 1;
    return g_lockedPage == nullptr ? 0 : RecurseForEver(depth + 1) + room[0];
}

[[gnu::noinline]] void GiveUp() {
    std::abort();
}

void OnAnotherThread(const std::function<void()>& fault) {
    std::thread(fault).join();
}

[[gnu::noinline]] void ParkedWorker(std::barrier<>& started, std::mutex& never) {
    started.arrive_and_wait();
    const std::lock_guard lock(never);
}

void AmongManyThreads() {
    constexpr int kCount = 200;
    std::barrier<> started(kCount + 1);
    std::mutex never;
    const std::lock_guard lock(never);
    std::vector<std::thread> threads;
    threads.reserve(kCount);
    for (int i = 0; i < kCount; ++i) {
        threads.emplace_back([&] { ParkedWorker(started, never); });
    }
    started.arrive_and_wait();
    TouchLockedPage();
}

void AllAtOnce() {
    constexpr int kCount = 16;
    std::barrier<> started(kCount);
    std::vector<std::thread> threads;
    threads.reserve(kCount);
    for (int i = 0; i < kCount; ++i) {
        threads.emplace_back([&] {
            started.arrive_and_wait();
            *g_lockedPage = 1;
        });
    }
    threads.front().join();
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

// A fault of the main thread while a second one waits.
void WithRefused(unsigned systemCall, unsigned code) {
    std::barrier<> started(2);
    std::mutex never;
    const std::lock_guard lock(never);
    std::thread other([&] { ParkedWorker(started, never); });
    started.arrive_and_wait();
    Refuse(systemCall, code);
    TouchLockedPage();
}

void WithoutDescriptors() {
    const rlimit few{.rlim_cur = 64, .rlim_max = 64};
    (void)setrlimit(RLIMIT_NOFILE, &few);
    while (dup(STDOUT_FILENO) >= 0) {
    }
    TouchLockedPage();
}

std::int32_t FaultAgain(EXCEPTION_POINTERS* fault) {
    (void)fault;
    *g_lockedPage = 2;
    return EXCEPTION_EXECUTE_HANDLER;
}

void InForkedChild() {
    const pid_t child = fork();
    if (child == 0) {
        TouchLockedPage();
    }
    int status = 0;
    (void)waitpid(child, &status, 0);
    std::exit(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV ? 0 : 4);
}

using Way = std::function<void(const std::string& dumpFile)>;

std::map<std::string, Way> Ways() {
    return {
        {"main", [](auto&) { TouchLockedPage(); }},
        {"thread", [](auto&) { OnAnotherThread(TouchLockedPage); }},
        {"overflow", [](auto&) { (void)RecurseForEver(0); }},
        {"thread-overflow", [](auto&) { OnAnotherThread([] { (void)RecurseForEver(0); }); }},
        {"abort", [](auto&) { GiveUp(); }},
        {"many-threads", [](auto&) { AmongManyThreads(); }},
        {"all-at-once", [](auto&) { AllAtOnce(); }},
        {"no-ptrace", [](auto&) { WithRefused(SYS_ptrace, EPERM); }},
        {"no-clone", [](auto&) { WithRefused(SYS_clone, EAGAIN); }},
        {"no-descriptors", [](auto&) { WithoutDescriptors(); }},
        {"no-space-for-all",
         [](auto&) {
             const rlimit size{.rlim_cur = 2 << 20, .rlim_max = 2 << 20};
             (void)signal(SIGXFSZ, SIG_IGN);
             (void)setrlimit(RLIMIT_FSIZE, &size);
             TouchLockedPage();
         }},
        {"uncovered",
         [](auto&) {
             if (SetUnhandledExceptionFilter(nullptr) != nullptr) {
                 TouchLockedPage();
             }
         }},
        {"fault-in-filter",
         [](auto&) {
             (void)SetUnhandledExceptionFilter(FaultAgain);
             TouchLockedPage();
         }},
        {"forked-child", [](auto&) { InForkedChild(); }},
        {"folder-gone",
         [](const std::string& file) {
             (void)std::filesystem::remove_all(std::filesystem::path(file).parent_path());
             TouchLockedPage();
         }},
    };
}

}  // namespace crash_child

using namespace crash_child;

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv, argv + argc);
    const rlimit noCore{.rlim_cur = 0, .rlim_max = 0};
    (void)setrlimit(RLIMIT_CORE, &noCore);
    (void)alarm(120);  // a hang ends as another signal than the one that is expected
    PinTextEncoding();
    const wxInitializer framework;
    g_lockedPage = LockedPage();
    const auto crumb = std::make_unique<Crumb>(Crumb{.number = 4711, .word = "breadcrumb"});
    g_crumb = crumb.get();
    ZelkaCore::InitCrashHandler(ZelkaCore::FromUtf8(arguments.at(1)),
                                ZelkaCore::FromUtf8("z\u00fcndel"), argc > 3);
    const std::string& way = arguments.at(2);
    const auto ways = Ways();
    if (const auto found = ways.find(way); found != ways.end()) {
        found->second(arguments.at(1));
    } else {
        (void)raise(std::stoi(way));
    }
    return 0;
}
