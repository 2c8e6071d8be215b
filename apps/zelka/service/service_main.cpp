// The body of the service, from its first report to its last.

#include <wx/log.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <utility>
#include <vector>

#include "apps/zelka/service/service_entries.h"
#include "apps/zelka/zelka.h"
#include "platform/crash.h"
#include "platform/memory.h"
#include "platform/regkey.h"
#include "zelka_core/log/journal.h"
#include "zelka_core/log/log2disk.h"
#include "zelka_core/log/system_error.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/task_scheduler.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

namespace {

constexpr const char* kFunction = "CAgentApp::ServiceMain";
constexpr const char* kSelfProtectKey = R"(HKLM\SOFTWARE\Orvane\Zelk Agent)";
constexpr const char* kSelfProtect = "Self Protect";
constexpr unsigned kStopWaitHint = 15'000;  // milliseconds
constexpr std::chrono::minutes kIdleWake{1};

unsigned AsExitCode(int status) {
    return static_cast<unsigned>(status);
}

}  // namespace

void ServiceMainEntry(DWORD argc, const wchar_t** argv) {
    // Lives to the end of the process, as the thread may log to its own end.
    static wxLog* const target = new ZelkaCore::CLog2Disk;
    (void)wxLog::SetThreadActiveTarget(target);
    try {
        TheAgentApp().ServiceMain(argc, argv);
    } catch (const std::exception& error) {
        wxLogError("The service ended by an exception: %s", wxString::FromUTF8(error.what()));
        TheAgentApp().SetServiceStatus(SERVICE_STOPPED, ECANCELED, 0, 0);
    }
}

void CAgentApp::ServiceMain(unsigned count, const wchar_t** arguments) {
    m_isService = true;
    ZelkaCore::UseJournal(m_pDom->Get("app.name"), m_pDom->Get("app.path.work"));
    ZELKA_TRACE("Srvc", kFunction, "ServiceMain() - svc name is '%s'", arguments[0]);
    (void)m_pDom->SetWx("app.windows.service.name", arguments[0]);

    ZELKA_TRACE("Srvc", kFunction, "ServiceMain() registering service control handler");
    SERVICE_STATUS_HANDLE handle = 0;
    if (const auto error =
            RegisterServiceCtrlHandlerExW(arguments[0], ServiceCtrlEntry, this, handle)) {
        ZelkaCore::LogSystemError(error, "RegisterServiceCtrlHandlerEx() failed");
        return;
    }
    m_hServiceStatus = handle;
    wxRegKey key(kSelfProtectKey);
    ReadSelfProtection(key);

    ZELKA_TRACE("Srvc", kFunction, "ServiceMain() SERVICE_START_PENDING");
    SetServiceStatus(SERVICE_START_PENDING, 0, 0, 0);
    const unsigned exitCode = RunService(count, arguments);
    m_phase = RunPhase::kOver;
    if (exitCode == 0) {
        m_packageTrials.Forgive(*m_pDom);
    }
    SetServiceStatus(SERVICE_STOPPED, exitCode, 0, 0);
}

void CAgentApp::ReadSelfProtection(wxRegKey& key) {
    if (!key.Open(wxRegKey::Read) || !key.HasValue(kSelfProtect)) {
        return;
    }
    long number = 0;
    if (!key.QueryValue(kSelfProtect, &number)) {
        ZELKA_TRACE("Srvc", kFunction, "Query self protection value from registry failed");
        return;
    }
    m_bHardened = number == 1;
    ZELKA_TRACE("Srvc", kFunction,
                "Retrieve self protection value successfully from registry. m_bHardened is now %d",
                static_cast<int>(m_bHardened));
}

// Everything between the first report and the last. A Lua function that answers a number other than
// 0 ends the service with it, without the application's shutdown.
unsigned CAgentApp::RunService(unsigned count, const wchar_t** arguments) {
    if (const unsigned error = CreateServiceEvents()) {
        return error;
    }
    for (unsigned i = 1; i < count; ++i) {
        (void)m_pDom->SetWx("app.trace+", arguments[i]);
    }
    if (const int status = StartAppModule()) {
        ZELKA_TRACE("Srvc", kFunction,
                    "ServiceMain() Lua init code returned status of %d - shutting down", status);
        return AsExitCode(status);
    }
    ZELKA_TRACE("Srvc", kFunction, "ServiceMain() SERVICE_RUNNING");
    SetServiceStatus(SERVICE_RUNNING, 0, 0, 0);
    m_phase = RunPhase::kMain;
    if (const int status = RunAppMethod(L"main")) {
        ZELKA_TRACE("Srvc", kFunction,
                    "ServiceMain() Lua main code returned status of %d - shutting down", status);
        return AsExitCode(status);
    }
    ZELKA_TRACE("Srvc", kFunction, "ServiceMain() waiting to be asked to stop");
    WaitForStop();
    return StopService();
}

// Makes the two events and lets scripts know of them. Returns the error that keeps the service from
// running, or 0; without its harden event it runs.
unsigned CAgentApp::CreateServiceEvents() {
    HANDLE stop = 0;
    if (const auto error = CreateEventW(true, false, stop)) {
        return static_cast<unsigned>(error.value());
    }
    m_hStopEvent = stop;
    (void)m_pDom->Set("app.windows.service.stopEvent", std::int64_t{stop});

    HANDLE harden = 0;
    const auto error = CreateEventW(false, false, harden);
    m_hHardenEvent = harden;
    if (error) {
        ZelkaCore::LogSystemError(error,
                                  "CreateEvent(m_hHardenEvent) failed. The service won't be able "
                                  "to be made unstoppable.");
        return 0;
    }
    (void)m_pDom->Set("app.windows.service.hardenEvent", std::int64_t{harden});
    return 0;
}

// Returns when the service has to stop: asked to, or because it can no longer be asked.
void CAgentApp::WaitForStop() {
    m_phase = RunPhase::kTasks;
    std::vector<ZelkaCore::Awaited> events{FindEvent(m_hStopEvent)};
    if (EventPtr harden = FindEvent(m_hHardenEvent)) {
        events.emplace_back(std::move(harden));
    }
    for (;;) {
        const auto result = WaitWithTasks(events, std::chrono::steady_clock::now() + kIdleWake);
        if (result.kind == ZelkaCore::WaitResult::Kind::kFailed) {
            ZelkaCore::LogSystemError(result.error, "WaitForSingleObject(m_hStopEvent) failed");
            return;
        }
        if (result.kind == ZelkaCore::WaitResult::Kind::kTimeout) {
            (void)_heapmin();
        } else if (result.index == 0) {
            return;
        } else {
            TakeHardening();
        }
    }
}

// Takes over what the script has written before it signalled the harden event. If that is no
// boolean, hardening stays as it is.
void CAgentApp::TakeHardening() {
    bool isHardened = m_bHardened;
    (void)m_pDom->Get("app.state.isHardened", isHardened);
    m_bHardened = isHardened;
    ZELKA_TRACE("Srvc", kFunction,
                "ServiceMain() awakened due to 'app.windows.service.hardenEvent'. m_bHardened is "
                "now %d",
                static_cast<int>(isHardened));
    SetServiceStatus(SERVICE_RUNNING, 0, 0, 0);
}

// The way out of a service that ran: the application's shutdown, whose result is the exit code.
unsigned CAgentApp::StopService() {
    ZELKA_TRACE("Srvc", kFunction, "ServiceMain() SERVICE_STOP_PENDING");
    const ZelkaCore::CTaskScheduler& tasks = m_pLua->Scheduler(*m_pDom);
    const auto patience = static_cast<unsigned>(tasks.Patience().count());
    SetServiceStatus(SERVICE_STOP_PENDING, 0, 1,
                     tasks.Living() == 0 ? kStopWaitHint : kStopWaitHint + 2 * patience);
    EndTasks();
    (void)m_pDom->SetNil("app.windows.service.stopEvent");
    (void)CloseHandle(m_hStopEvent.exchange(INVALID_HANDLE_VALUE));
    (void)SetUnhandledExceptionFilter(nullptr);
    m_phase = RunPhase::kShutdown;
    int status = RunAppMethod(L"shutdown");
    if (status == 0) {
        status = ResultOfTasks();
    }
    ZELKA_TRACE("Srvc", kFunction, "ServiceMain() SERVICE_STOPPED");
    return AsExitCode(status);
}
