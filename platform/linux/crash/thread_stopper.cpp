#include "platform/linux/crash/thread_stopper.h"

#include <sys/ptrace.h>
#include <sys/wait.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/linux/crash/signal_safe_calls.h"

namespace crash {
namespace {

constexpr std::int64_t kStopLimitNs = 5'000'000'000;
constexpr int kRounds = 8;  // each finds the threads that were made during the one before
constexpr std::size_t kKernelSignalSetSize = 8;

// An entry of a folder as getdents64(2) describes it, up to its name.
struct EntryHead {
    std::uint64_t inode;
    std::int64_t next;
    std::uint16_t length;
    std::uint8_t type;
};
constexpr std::size_t kEntryName = offsetof(EntryHead, type) + sizeof(EntryHead::type);

std::int64_t NowNs() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

int OpenTaskFolder(pid_t process) {
    constexpr std::string_view kBefore = "/proc/";
    constexpr std::string_view kAfter = "/task";
    std::array<char, 48> path{};
    char* end = std::copy(kBefore.begin(), kBefore.end(), path.data());
    end = std::to_chars(end, path.data() + path.size(), process).ptr;
    (void)std::copy(kAfter.begin(), kAfter.end(), end);
    return Open(path.data(), O_RDONLY | O_DIRECTORY);
}

void SeizeThread(pid_t thread, ThreadTable& table) {
    const auto known = table.Threads();
    if (known.size() == table.threads.size() ||
        std::any_of(known.begin(), known.end(),
                    [thread](const TracedThread& other) { return other.id == thread; })) {
        return;
    }
    if (syscall(SYS_ptrace, PTRACE_SEIZE, thread, nullptr, nullptr) == 0) {
        (void)syscall(SYS_ptrace, PTRACE_INTERRUPT, thread, nullptr, nullptr);
        table.threads[table.count++] = {.id = thread, .state = TracedThread::State::kSeized};
    }
}

void SeizeThreadsInFolder(int folder, pid_t except, ThreadTable& table) {
    for (;;) {
        const long bytes =
            syscall(SYS_getdents64, folder, table.entries.data(), table.entries.size());
        if (bytes <= 0) {
            return;
        }
        for (std::size_t at = 0; at < static_cast<std::size_t>(bytes);) {
            EntryHead head{};
            std::memcpy(&head, table.entries.data() + at, sizeof head);
            const char* name = table.entries.data() + at + kEntryName;
            pid_t thread = 0;  // stays 0 for "." and ".."
            (void)std::from_chars(name, name + std::strlen(name), thread);
            if (thread != 0 && thread != except) {
                SeizeThread(thread, table);
            }
            at += head.length;
        }
    }
}

// Takes down what waitpid() has to tell without waiting.
void NoteStops(ThreadTable& table) {
    for (;;) {
        int status = 0;
        const long thread = syscall(SYS_wait4, -1, &status, __WALL | WNOHANG, nullptr);
        if (thread <= 0) {
            return;
        }
        for (TracedThread& known : table.Threads()) {
            if (known.id == thread) {
                known.state =
                    WIFSTOPPED(status) ? TracedThread::State::kStopped : TracedThread::State::kGone;
            }
        }
    }
}

// False if not all have stopped before the deadline.
bool AwaitStops(ThreadTable& table, std::int64_t deadlineNs) {
    sigset_t childStops;
    (void)sigemptyset(&childStops);
    (void)sigaddset(&childStops, SIGCHLD);
    for (;;) {
        NoteStops(table);
        const auto threads = table.Threads();
        if (std::none_of(threads.begin(), threads.end(), [](const TracedThread& thread) {
                return thread.state == TracedThread::State::kSeized;
            })) {
            return true;
        }
        const std::int64_t left = deadlineNs - NowNs();
        if (left <= 0) {
            return false;
        }
        const timespec limit{.tv_sec = left / 1'000'000'000, .tv_nsec = left % 1'000'000'000};
        (void)syscall(SYS_rt_sigtimedwait, &childStops, nullptr, &limit, kKernelSignalSetSize);
    }
}

}  // namespace

void StopThreads(pid_t process, pid_t except, ThreadTable& table) {
    table.count = 0;
    const std::int64_t deadline = NowNs() + kStopLimitNs;
    for (int round = 0; round < kRounds; ++round) {
        const std::size_t before = table.count;
        const int folder = OpenTaskFolder(process);
        if (folder < 0) {
            return;
        }
        SeizeThreadsInFolder(folder, except, table);
        Close(folder);
        // All are interrupted before the first is waited for: one by one takes minutes with 1,000.
        if (table.count == before || !AwaitStops(table, deadline)) {
            return;
        }
    }
}

}  // namespace crash
