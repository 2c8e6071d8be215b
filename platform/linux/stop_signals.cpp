#include "platform/stop_signals.h"

#include <sys/signalfd.h>
#include <unistd.h>
#include <wx/evtloop.h>
#include <wx/evtloopsrc.h>

#include <csignal>
#include <utility>

#include "platform/error.h"
#include "platform/scoped_fd.h"

namespace {

sigset_t Signals() {
    sigset_t signals;
    (void)sigemptyset(&signals);
    (void)sigaddset(&signals, SIGINT);
    (void)sigaddset(&signals, SIGTERM);
    return signals;
}

void Release() {
    const sigset_t signals = Signals();
    (void)pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

class SignalWatch : public StopSignals, private wxEventLoopSourceHandler {
  public:
    explicit SignalWatch(std::function<void()> onStop) : m_onStop(std::move(onStop)) {}
    ~SignalWatch() override { Release(); }
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    std::error_code Watch() {
        const sigset_t signals = Signals();
        m_signals.Reset(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
        if (!m_signals.IsOpen()) {
            return LastSystemError();
        }
        m_source.reset(
            wxEventLoopBase::AddSourceForFD(m_signals.Get(), this, wxEVENT_SOURCE_INPUT));
        return m_source ? std::error_code() : std::make_error_code(std::errc::not_supported);
    }

  private:
    void OnReadWaiting() override {
        signalfd_siginfo signal = {};
        while (read(m_signals.Get(), &signal, sizeof signal) == sizeof signal) {
            if (m_onStop == nullptr) {
                (void)raise(static_cast<int>(signal.ssi_signo));
                Release();  // the process ends here
            } else {
                std::exchange(m_onStop, nullptr)();
            }
        }
    }
    void OnWriteWaiting() override {}
    void OnExceptionWaiting() override {}

    std::function<void()> m_onStop;  // null once it was told
    ScopedFd m_signals;
    std::unique_ptr<wxEventLoopSource> m_source;  // goes before the descriptor that it watches
};

}  // namespace

void HoldStopSignals() {
    const sigset_t signals = Signals();
    (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

std::error_code StopSignals::Begin(std::function<void()> onStop,
                                   std::unique_ptr<StopSignals>& signals) {
    auto begun = std::make_unique<SignalWatch>(std::move(onStop));
    const auto error = begun->Watch();
    if (!error) {
        signals = std::move(begun);
    }
    return error;
}
