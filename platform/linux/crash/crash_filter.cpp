#include <array>
#include <atomic>
#include <csignal>
#include <mutex>

#include "platform/crash.h"
#include "platform/linux/crash/fault.h"
#include "platform/linux/crash/signal_safe_calls.h"
#include "platform/linux/crash/thread_alt_stacks.h"

namespace {

constexpr std::array kFaultSignals{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS};

std::atomic<LPTOP_LEVEL_EXCEPTION_FILTER> g_filter{nullptr};
std::atomic<pid_t> g_coveredProcess{0};
std::atomic<bool> g_faulted{false};

std::mutex g_settingMutex;
// Guarded by g_settingMutex: the actions that were in force before the cover began.
std::array<struct sigaction, kFaultSignals.size()> g_actionsBefore;

// --- From here to OnFault() everything runs in the signal handler. ---

pid_t CallingProcess() {
    return static_cast<pid_t>(syscall(SYS_getpid));
}

pid_t CallingThread() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

[[noreturn]] void DieOf(int signal) {
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    (void)sigaction(signal, &action, nullptr);
    (void)syscall(SYS_tgkill, CallingProcess(), CallingThread(), signal);
    sigset_t itself;
    (void)sigemptyset(&itself);
    (void)sigaddset(&itself, signal);
    (void)pthread_sigmask(SIG_UNBLOCK, &itself, nullptr);
    // Still here: the first process of a container does not die of a signal. A shell's form of it.
    for (;;) {
        (void)syscall(SYS_exit_group, 128 + signal);
    }
}

// Another thread is handling its fault and will end the process.
[[noreturn]] void WaitForTheEnd() {
    for (;;) {
        (void)syscall(SYS_ppoll, nullptr, 0UL, nullptr, nullptr, 0UL);
    }
}

void OnFault(int signal, siginfo_t* info, void* context) {
    const LPTOP_LEVEL_EXCEPTION_FILTER filter = g_filter.load();
    if (filter == nullptr || g_coveredProcess.load() != CallingProcess()) {
        DieOf(signal);
    }
    if (g_faulted.exchange(true)) {
        WaitForTheEnd();
    }
    EXCEPTION_POINTERS fault{.signal = signal,
                             .info = info,
                             .context = static_cast<const ucontext_t*>(context),
                             .process = CallingProcess(),
                             .thread = CallingThread()};
    (void)filter(&fault);
    DieOf(signal);
}

// --- From here on no code runs in the signal handler. ---

void BeginCover() {
    // The caller is the main thread, as a rule. Never destroyed: another thread may call exit().
    static const auto* const stackOfFirstCaller = new crash::AltStack;
    (void)stackOfFirstCaller;
    g_coveredProcess.store(CallingProcess());
    struct sigaction action = {};
    action.sa_sigaction = OnFault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    // A second fault of the same thread meets a blocked signal, for which the kernel ends the
    // process.
    (void)sigfillset(&action.sa_mask);
    for (std::size_t i = 0; i < kFaultSignals.size(); ++i) {
        (void)sigaction(kFaultSignals[i], &action, &g_actionsBefore[i]);
    }
}

void EndCover() {
    for (std::size_t i = 0; i < kFaultSignals.size(); ++i) {
        (void)sigaction(kFaultSignals[i], &g_actionsBefore[i], nullptr);
    }
}

}  // namespace

LPTOP_LEVEL_EXCEPTION_FILTER SetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER filter) {
    const std::lock_guard lock(g_settingMutex);
    const LPTOP_LEVEL_EXCEPTION_FILTER previous = g_filter.load();
    if (filter != nullptr) {
        g_filter.store(filter);
        if (previous == nullptr) {
            BeginCover();
        }
    } else if (previous != nullptr) {
        EndCover();
        g_filter.store(nullptr);
    }
    return previous;
}
