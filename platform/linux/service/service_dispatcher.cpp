#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <wx/log.h>
#include <wx/tokenzr.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/service/service_policy.h"
#include "platform/linux/service/service_reporter.h"
#include "platform/linux/service/service_signals.h"
#include "platform/linux/service/systemd.h"
#include "platform/scoped_fd.h"
#include "platform/service.h"

namespace {

constexpr SERVICE_STATUS_HANDLE kStatusHandle = 1;  // of the one service that a process can be

// Bytes, for the body of the service, whatever `ulimit -s` says: scripts nest deep there.
constexpr std::size_t kStackSize = 8'388'608;

std::error_code Errno(std::errc code) {
    return std::make_error_code(code);
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
    void SetProfile(ServiceProfile profile) { m_profile = std::move(profile); }
    [[nodiscard]] const ServiceProfile& Profile() const { return m_profile; }

    std::error_code Open();
    std::error_code Run(LPSERVICE_MAIN_FUNCTIONW body);

    std::error_code Bind(const wxString& name, LPHANDLER_FUNCTION_EX handler, void* context);
    std::error_code Report(const SERVICE_STATUS& status, const std::string& phase);

  private:
    void RunBody() noexcept;
    void Dispatch();
    void TakeSignals();
    void Handle(DWORD control);
    void Deliver(DWORD control);
    void Wake() const;

    // Constant once the body runs.
    LPSERVICE_MAIN_FUNCTIONW m_body = nullptr;
    ServiceProfile m_profile;
    std::string m_unit;
    wxString m_name;
    ScopedFd m_signals;
    ScopedFd m_wake;
    std::thread::id m_dispatcher;

    std::mutex m_mutex;
    LPHANDLER_FUNCTION_EX m_handler = nullptr;  // guarded by m_mutex
    void* m_context = nullptr;                  // guarded by m_mutex

    std::atomic<bool> m_ended = false;

    DWORD m_held = 0;  // stop or shutdown; touched by the dispatcher
};

// Never destroyed: a service that the process does not wait for may still report.
Service& TheService() {
    static auto* service = new Service;
    return *service;
}

std::error_code Service::Open() {
    const sigset_t signals = ServiceSignals(m_profile);
    if (const int code = pthread_sigmask(SIG_BLOCK, &signals, nullptr)) {
        return {code, std::generic_category()};
    }
    m_signals.Reset(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    m_wake.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!m_signals.IsOpen() || !m_wake.IsOpen()) {
        return LastSystemError();
    }
    m_unit = OwnUnit();
    m_name = wxString::FromUTF8(ServiceNameOf(m_unit, m_profile.name));
    TheServiceReporter().Open(m_unit);
    m_dispatcher = std::this_thread::get_id();
    return {};
}

std::error_code Service::Run(LPSERVICE_MAIN_FUNCTIONW body) {
    m_body = body;
    pthread_attr_t attributes;
    (void)pthread_attr_init(&attributes);
    (void)pthread_attr_setstacksize(&attributes, kStackSize);
    pthread_t thread{};
    const auto run = [](void* self) -> void* {
        static_cast<Service*>(self)->RunBody();
        return nullptr;
    };
    const int code = pthread_create(&thread, &attributes, run, this);
    (void)pthread_attr_destroy(&attributes);
    if (code != 0) {
        return {code, std::generic_category()};
    }
    Dispatch();
    (void)pthread_join(thread, nullptr);
    return {};
}

void Service::RunBody() noexcept {
    (void)pthread_setname_np(pthread_self(), "service");
    const char* words = std::getenv(m_profile.argumentsVariable.c_str());
    const wxArrayString parameters = wxStringTokenize(
        wxString::FromUTF8(words != nullptr ? words : ""), " \t\r\n", wxTOKEN_STRTOK);
    std::vector<const wchar_t*> arguments{m_name.wc_str()};
    for (const wxString& parameter : parameters) {
        arguments.push_back(parameter.wc_str());
    }
    m_body(static_cast<DWORD>(arguments.size()), arguments.data());
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
        Handle(ControlOf(signal, m_profile));
    }
}

void Service::Handle(DWORD control) {
    const ControlFate fate =
        JudgeControl(control, TheServiceReporter().LastReport(), m_profile.controls);
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

std::error_code Service::Bind(const wxString& name, LPHANDLER_FUNCTION_EX handler, void* context) {
    const std::lock_guard lock(m_mutex);
    if (handler == nullptr || name != m_name) {
        return Errno(std::errc::invalid_argument);
    }
    if (m_handler != nullptr) {
        return Errno(std::errc::connection_already_in_progress);
    }
    m_handler = handler;
    m_context = context;
    return {};
}

std::error_code Service::Report(const SERVICE_STATUS& status, const std::string& phase) {
    const bool isAnswer = std::this_thread::get_id() == m_dispatcher &&
                          (status.dwCurrentState == SERVICE_RUNNING ||
                           status.dwCurrentState == SERVICE_START_PENDING);
    if (isAnswer) {
        return TheServiceReporter().Repeat();
    }
    const auto error = TheServiceReporter().Report(status, phase);
    Wake();
    return error;
}

void Service::Wake() const {
    const std::uint64_t one = 1;
    (void)!write(m_wake.Get(), &one, sizeof one);
}

}  // namespace

bool IsStartedByManager() {
    return std::getenv("NOTIFY_SOCKET") != nullptr;
}

void BlockServiceSignals(ServiceProfile profile) {
    if (IsStartedByManager()) {
        const sigset_t signals = ServiceSignals(profile);
        (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }
    TheService().SetProfile(std::move(profile));
}

void UnblockServiceSignals() {
    if (IsStartedByManager()) {
        const sigset_t signals = ServiceSignals(TheService().Profile());
        (void)pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    }
}

std::error_code StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table) {
    static std::atomic<bool> isStarted = false;
    if (!IsStartedByManager()) {
        return PlatformError::kNoServiceManager;
    }
    if (table == nullptr || table->lpServiceProc == nullptr) {
        return Errno(std::errc::invalid_argument);
    }
    if (isStarted.exchange(true)) {
        return Errno(std::errc::connection_already_in_progress);
    }
    const auto error = TheService().Open();
    return error ? error : TheService().Run(table->lpServiceProc);
}

std::error_code RegisterServiceCtrlHandlerExW(const wchar_t* name, LPHANDLER_FUNCTION_EX handler,
                                              void* context, SERVICE_STATUS_HANDLE& service) {
    const auto error = TheService().Bind(name, handler, context);
    if (!error) {
        service = kStatusHandle;
    }
    return error;
}

std::error_code SetServiceStatus(SERVICE_STATUS_HANDLE service, const SERVICE_STATUS& status,
                                 const std::string& phase) {
    if (service != kStatusHandle) {
        return Errno(std::errc::bad_file_descriptor);
    }
    return TheService().Report(status, phase);
}

void ReportServiceProgress(const std::string& text) {
    TheServiceReporter().ReportProgress(text);
}

void ExtendServiceTimeout() {
    TheServiceReporter().ExtendTimeout();
}

int ServiceExitStatus() {
    const char* wanted = std::getenv(TheService().Profile().exitStatusVariable.c_str());
    const bool isWanted = wanted != nullptr && std::string_view(wanted) == "1";
    return isWanted ? ExitStatusOf(TheServiceReporter().ExitCode()) : 0;
}
