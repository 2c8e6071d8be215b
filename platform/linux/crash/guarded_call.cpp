#include "platform/linux/crash/guarded_call.h"

#include <array>
#include <atomic>
#include <csignal>

#include "platform/linux/crash/signal_safe_calls.h"

namespace crash {
namespace {

constexpr std::array kSignals{SIGSEGV, SIGBUS};

// The compiler's own jump, not the C library's: sanitizers take that for one on a stack they know.
std::array<void*, 5> g_return;
std::atomic<long> g_guarded{0};  // the thread that may jump

void Leave(int) {
    if (syscall(SYS_gettid) != g_guarded.load()) {
        for (;;) {
            (void)syscall(SYS_ppoll, nullptr, 0UL, nullptr, nullptr, 0UL);
        }
    }
    __builtin_longjmp(g_return.data(), 1);
}

// Nothing but the jump's target, as no variable survives the jump.
[[gnu::noinline]] bool CallAndReturn(void (*function)(void*), void* argument) {
    if (__builtin_setjmp(g_return.data()) != 0) {
        return false;
    }
    function(argument);
    return true;
}

}  // namespace

bool CallDespiteFaults(void (*function)(void*), void* argument) {
    struct sigaction action = {};
    action.sa_handler = Leave;
    action.sa_flags = SA_NODEFER | SA_ONSTACK;  // it is left by a jump
    sigset_t faults;
    (void)sigemptyset(&faults);
    std::array<struct sigaction, kSignals.size()> before{};
    g_guarded.store(syscall(SYS_gettid));
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        (void)sigaddset(&faults, kSignals[i]);
        (void)sigaction(kSignals[i], &action, &before[i]);
    }
    sigset_t maskBefore;
    (void)pthread_sigmask(SIG_UNBLOCK, &faults, &maskBefore);
    const bool isDone = CallAndReturn(function, argument);
    (void)pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        (void)sigaction(kSignals[i], &before[i], nullptr);
    }
    return isDone;
}

}  // namespace crash
