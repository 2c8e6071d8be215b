#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <systemd/sd-daemon.h>
#include <wx/log.h>
#include <wx/tokenzr.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/linux/service/service_policy.h"
#include "platform/linux/service/systemd.h"
#include "platform/scoped_fd.h"
#include "platform/service.h"

namespace {

constexpr SERVICE_STATUS_HANDLE kStatusHandle = 1;  // of the one service that a process can be
constexpr int kDumpSignals = 3;                     // RTMIN+1 to RTMIN+3

bool FailWith(int code) {
    SetLastError(static_cast<DWORD>(code));
    return false;
}

bool IsStartedByManager() {
    return std::getenv("NOTIFY_SOCKET") != nullptr;
}

sigset_t ServiceSignals() {
    sigset_t signals;
    (void)sigemptyset(&signals);
    (void)sigaddset(&signals, SIGTERM);
    for (int i = 0; i <= kDumpSignals; ++i) {
        (void)sigaddset(&signals, SIGRTMIN + i);
    }
    return signals;
}

DWORD ControlOf(const signalfd_siginfo& signal) {
    const int number = static_cast<int>(signal.ssi_signo);
    if (number == SIGTERM) {
        return IsSystemGoingDown() ? SERVICE_CONTROL_SHUTDOWN : SERVICE_CONTROL_STOP;
    }
    if (number == SIGRTMIN) {
        return static_cast<DWORD>(signal.ssi_int);
    }
    return SERVICE_CONTROL_DUMP_BRIEF + static_cast<DWORD>(number - SIGRTMIN - 1);
}

void LogUndelivered(ControlFate fate, DWORD control) {
    if (fate == ControlFate::kRefuse) {
        wxLogWarning("Service control %u is refused: the service does not accept it now", control);
    } else {
        wxLogVerbose("Service control %u is dropped: it has no meaning in this phase", control);
    }
}

// The service of this process. Two threads meet here: its body and the dispatcher.
class Service {
  public:
    bool Open();
    bool Run(LPSERVICE_MAIN_FUNCTIONW body);

    bool Bind(const wxString& name, LPHANDLER_FUNCTION_EX handler, void* context);
    bool Report(const SERVICE_STATUS& status);
    [[nodiscard]] DWORD ExitCode() const { return m_exitCode; }

  private:
    void RunBody(LPSERVICE_MAIN_FUNCTIONW body) noexcept;
    void Dispatch();
    void TakeSignals();
    void Handle(DWORD control);
    void Deliver(DWORD control);

    bool Accept(const SERVICE_STATUS& status);
    SERVICE_STATUS LastReport() const;
    void Wake() const;

    // Constant once the body runs.
    std::string m_unit;
    wxString m_name;
    ScopedFd m_signals;
    ScopedFd m_wake;
    std::optional<UnitStopRefusal> m_refusal;
    std::thread::id m_dispatcher;

    // Keeps reports in order on their way to systemd. Held while it is told, and taken by nothing
    // else.
    std::mutex m_reportOrder;
    bool m_isHardened = false;  // guarded by m_reportOrder

    mutable std::mutex m_mutex;
    LPHANDLER_FUNCTION_EX m_handler = nullptr;  // guarded by m_mutex
    void* m_context = nullptr;                  // guarded by m_mutex
    SERVICE_STATUS m_last = {};                 // guarded by m_mutex

    std::atomic<DWORD> m_exitCode = 0;
    std::atomic<bool> m_ended = false;

    DWORD m_held = 0;  // stop or shutdown; touched by the dispatcher
};

// Never destroyed: a service that the process does not wait for may still report.
Service& TheService() {
    static auto* service = new Service;
    return *service;
}

bool Service::Open() {
    const sigset_t signals = ServiceSignals();
    if (const int error = pthread_sigmask(SIG_BLOCK, &signals, nullptr)) {
        return FailWith(error);
    }
    m_signals.Reset(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    m_wake.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!m_signals.IsOpen() || !m_wake.IsOpen()) {
        return FailWith(errno);
    }
    m_unit = OwnUnit();
    m_name = wxString::FromUTF8(ServiceNameOf(m_unit));
    m_refusal.emplace(m_unit);
    m_refusal->Set(false);  // what a crash may have left behind
    m_dispatcher = std::this_thread::get_id();
    return true;
}

bool Service::Run(LPSERVICE_MAIN_FUNCTIONW body) {
    std::thread thread;
    try {
        thread = std::thread([this, body] { RunBody(body); });
    } catch (const std::system_error& error) {
        return FailWith(error.code().value());
    }
    Dispatch();
    thread.join();
    return true;
}

void Service::RunBody(LPSERVICE_MAIN_FUNCTIONW body) noexcept {
    (void)pthread_setname_np(pthread_self(), "service");
    const char* words = std::getenv("ZELKA_SERVICE_ARGS");
    const wxArrayString parameters = wxStringTokenize(
        wxString::FromUTF8(words != nullptr ? words : ""), " \t\r\n", wxTOKEN_STRTOK);
    std::vector<const wchar_t*> arguments{m_name.wc_str()};
    for (const wxString& parameter : parameters) {
        arguments.push_back(parameter.wc_str());
    }
    body(static_cast<DWORD>(arguments.size()), arguments.data());
    m_ended = true;
    Wake();
}

// Takes controls until the body has returned.
void Service::Dispatch() {
    while (!m_ended) {
        std::array<pollfd, 2> fds{pollfd{.fd = m_wake.Get(), .events = POLLIN, .revents = 0},
                                  pollfd{.fd = m_signals.Get(), .events = POLLIN, .revents = 0}};
        if (poll(fds.data(), fds.size(), -1) < 0) {
            continue;  // interrupted: nothing else can go wrong with these two
        }
        std::uint64_t count = 0;
        (void)!read(m_wake.Get(), &count, sizeof count);
        if (m_held != 0) {
            Handle(std::exchange(m_held, 0));
        }
        TakeSignals();
    }
}

void Service::TakeSignals() {
    signalfd_siginfo signal = {};
    while (!m_ended && read(m_signals.Get(), &signal, sizeof signal) == sizeof signal) {
        Handle(ControlOf(signal));
    }
}

void Service::Handle(DWORD control) {
    const ControlFate fate = JudgeControl(control, LastReport());
    switch (fate) {
        case ControlFate::kDeliver:
            Deliver(control);
            break;
        case ControlFate::kHold:
            // A shutdown is not taken back by a stop.
            m_held = m_held == SERVICE_CONTROL_SHUTDOWN ? m_held : control;
            break;
        case ControlFate::kRefuse:
            // What systemd has begun it ends by force: better an orderly stop than that.
            if (control == SERVICE_CONTROL_STOP && IsUnitDeactivating(m_unit)) {
                Handle(SERVICE_CONTROL_SHUTDOWN);
                break;
            }
            [[fallthrough]];
        case ControlFate::kDrop:
            LogUndelivered(fate, control);
            break;
    }
}

void Service::Deliver(DWORD control) {
    LPHANDLER_FUNCTION_EX handler = nullptr;
    void* context = nullptr;
    {
        const std::lock_guard lock(m_mutex);
        handler = m_handler;
        context = m_context;
    }
    const DWORD result = handler(control, 0, nullptr, context);
    if (result != NO_ERROR) {
        wxLogVerbose("Service control %u: the service answered %u", control, result);
    }
}

bool Service::Bind(const wxString& name, LPHANDLER_FUNCTION_EX handler, void* context) {
    const std::lock_guard lock(m_mutex);
    if (handler == nullptr || name != m_name) {
        return FailWith(EINVAL);
    }
    if (m_handler != nullptr) {
        return FailWith(EALREADY);
    }
    m_handler = handler;
    m_context = context;
    return true;
}

bool Service::Report(const SERVICE_STATUS& status) {
    const std::lock_guard order(m_reportOrder);
    SERVICE_STATUS told = status;
    const bool isAnswer = std::this_thread::get_id() == m_dispatcher &&
                          (status.dwCurrentState == SERVICE_RUNNING ||
                           status.dwCurrentState == SERVICE_START_PENDING);
    if (isAnswer) {
        told = LastReport();
        told.dwWaitHint = 0;
    } else if (!Accept(status)) {
        return false;
    }
    const int result = sd_notify(0, NotificationText(told).c_str());
    return result >= 0 || FailWith(-result);
}

// Makes a report the one that counts.
bool Service::Accept(const SERVICE_STATUS& status) {
    if (status.dwCurrentState < SERVICE_STOPPED || status.dwCurrentState > SERVICE_RUNNING) {
        return FailWith(EINVAL);
    }
    if (status.dwCurrentState == SERVICE_STOPPED) {
        m_exitCode = status.dwWin32ExitCode;
    }
    // A stop that is under way leaves the refusal to the end, when nobody can ask for one any more.
    const bool isHardened =
        IsHardened(status) || (m_isHardened && status.dwCurrentState == SERVICE_STOP_PENDING);
    if (isHardened != m_isHardened) {
        m_isHardened = isHardened;
        m_refusal->Set(isHardened);
    }
    {
        const std::lock_guard lock(m_mutex);
        m_last = status;
    }
    Wake();
    return true;
}

SERVICE_STATUS Service::LastReport() const {
    const std::lock_guard lock(m_mutex);
    return m_last;
}

void Service::Wake() const {
    const std::uint64_t one = 1;
    (void)!write(m_wake.Get(), &one, sizeof one);
}

}  // namespace

void BlockServiceSignals() {
    if (IsStartedByManager()) {
        const sigset_t signals = ServiceSignals();
        (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }
}

void UnblockServiceSignals() {
    if (IsStartedByManager()) {
        const sigset_t signals = ServiceSignals();
        (void)pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    }
}

bool StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table) {
    static std::atomic<bool> isStarted = false;
    if (!IsStartedByManager()) {
        return FailWith(static_cast<int>(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT));
    }
    if (table == nullptr || table->lpServiceProc == nullptr) {
        return FailWith(EINVAL);
    }
    if (isStarted.exchange(true)) {
        return FailWith(EALREADY);
    }
    return TheService().Open() && TheService().Run(table->lpServiceProc);
}

SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerExW(const wchar_t* name,
                                                    LPHANDLER_FUNCTION_EX handler, void* context) {
    return TheService().Bind(name, handler, context) ? kStatusHandle : 0;
}

bool SetServiceStatus(SERVICE_STATUS_HANDLE service, const SERVICE_STATUS* status) {
    if (service != kStatusHandle || status == nullptr) {
        return FailWith(EBADF);
    }
    return TheService().Report(*status);
}

int ServiceExitStatus() {
    const char* wanted = std::getenv("ZELKA_SERVICE_EXIT_STATUS");
    const bool isWanted = wanted != nullptr && std::string_view(wanted) == "1";
    return isWanted ? ExitStatusOf(TheService().ExitCode()) : 0;
}
