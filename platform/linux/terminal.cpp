#include "platform/terminal.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

#include "platform/error.h"

namespace {

sigset_t InterruptSet() {
    sigset_t signals;
    (void)sigemptyset(&signals);
    (void)sigaddset(&signals, SIGINT);
    return signals;
}

}  // namespace

bool IsTerminal(std::FILE* stream) {
    return isatty(fileno(stream)) == 1;
}

Interrupts::~Interrupts() {
    if (m_signals.IsOpen()) {
        Clear();
        const sigset_t signals = InterruptSet();
        (void)pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    }
}

std::error_code Interrupts::Open() {
    const sigset_t signals = InterruptSet();
    ScopedFd opened(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!opened.IsOpen() || pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0) {
        return LastSystemError();
    }
    m_signals = std::move(opened);
    return {};
}

void Interrupts::Clear() const {
    signalfd_siginfo signal = {};
    while (read(m_signals.Get(), &signal, sizeof signal) == sizeof signal) {
    }
}
