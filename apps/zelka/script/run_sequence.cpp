// What the script thread does from its first to its last step.

#include "apps/zelka/service/service_entries.h"
#include "apps/zelka/zelka.h"
#include "platform/crash.h"
#include "platform/service.h"
#include "zelka_core/log/system_error.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/store/dom.h"

int CAgentApp::OnRunScript() {
    if (m_bBackground) {
        int result = 0;
        if (BecomeService(result)) {
            return result;
        }
    }
    const auto run = [this] {
        if (const int result = StartAppModule()) {
            return result;
        }
        m_phase = RunPhase::kMain;
        if (const int result = m_strUnitTest.empty() ? RunAppMethod(L"main") : RunUnitTest()) {
            return result;
        }
        RunTasks();
        EndTasks();
        (void)SetUnhandledExceptionFilter(nullptr);
        m_phase = RunPhase::kShutdown;
        const int result = RunAppMethod(L"shutdown");
        return result != 0 ? result : ResultOfTasks();
    };
    const int result = run();
    m_phase = RunPhase::kOver;
    if (result == 0) {
        m_packageTrials.Forgive(*m_pDom);
    }
    return ExitStatusOf(static_cast<DWORD>(result));
}

// True if the process was a service, or should have been one and could not; `result` is the
// process's then. False if no service manager started it: the run is an interactive one from here
// on.
bool CAgentApp::BecomeService(int& result) {
    static constexpr SERVICE_TABLE_ENTRYW kServices[] = {{L"", ServiceMainEntry},
                                                         {nullptr, nullptr}};
    ZELKA_TRACE("Srvc", "CAgentApp::OnRunScript", "Calling StartServiceCtrlDispatcher()");
    const auto error = StartServiceCtrlDispatcherW(kServices);
    if (error) {
        ZelkaCore::LogSystemError(error, "StartServiceCtrlDispatcher() failed");
    }
    ZELKA_TRACE("Srvc", "CAgentApp::OnRunScript", "StartServiceCtrlDispatcher() returned.");
    if (error != PlatformError::kNoServiceManager) {
        result = ServiceExitStatus();
        return true;
    }
    ZELKA_TRACE("Srvc", "CAgentApp::OnRunScript",
                "App is being run interactively - not as a service.");
    (void)m_pDom->SetNil("app.background");
    m_bBackground = false;
    return false;
}
