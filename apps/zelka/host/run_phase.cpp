// The run phase: the main thread keeps the event loop while the script thread does the work.

#include <wx/evtloop.h>
#include <wx/log.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "apps/zelka/control/control_server.h"
#include "apps/zelka/host/script_thread.h"
#include "apps/zelka/host/start_failure.h"
#include "apps/zelka/watcher/agent_frame.h"
#include "apps/zelka/zelka.h"
#include "platform/clock_change.h"
#include "platform/process_setup.h"
#include "platform/service.h"
#include "platform/stop_signals.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

using ZelkaCore::FromUtf8;
using ZelkaCore::ToUtf8;

namespace {

constexpr int kTimerInterval = 1000;          // milliseconds
constexpr unsigned int kNormalPriority = 50;  // of 0 to 100

// What loop, timers and watchers open, with some left for the application's first steps.
constexpr std::size_t kDescriptorsNeeded = 16;

// Shorter than a second only where the service manager wants to hear of the service that often.
int TickInterval() {
    const auto half = std::chrono::ceil<std::chrono::milliseconds>(WatchdogInterval() / 2).count();
    return half == 0 ? kTimerInterval : static_cast<int>(std::min<long>(half, kTimerInterval));
}

}  // namespace

int CAgentApp::OnRun() {
    SelectCryptoProvider();
    if (const auto error = CheckFreeDescriptors(kDescriptorsNeeded)) {
        ReportFailedStart(wxString::Format("The main loop needs %zu file descriptors: %s",
                                           kDescriptorsNeeded, FromUtf8(error.message())));
        return -1;
    }
    if (!m_bBackground) {
        wxLog::SetLogLevel(wxLOG_Max);
        UnblockServiceSignals();
    }
    m_bHoldsStopSignals = !m_bBackground || !IsStartedByManager();
    if (m_bHoldsStopSignals) {
        HoldStopSignals();
    }
    m_pParentWindow = new wxWindow;
    auto* frame = new CAgentFrame(m_pParentWindow, GetAppName());  // goes in CleanUp
    SetTopWindow(frame);
    (void)frame->Show(false);
    SetExitOnFrameDelete(!m_bBackground);
    frame->Bind(wxEVT_TIMER, [this](wxTimerEvent& tick) {
        OnTick();
        tick.Skip();  // the frame has work of its own
    });
    (void)frame->Timer().Start(TickInterval(), false);

    const auto control = OpenControlSocket();
    CScriptThread script;
    (void)script.SetDom(m_pDom);
    script.start(kNormalPriority, true, 0);
    if (!script.IsStarted()) {
        ReportFailedStart("The thread of the application cannot be started");
        return -1;
    }
    const int result = wxAppBase::OnRun();
    script.requestExit();
    (void)script.join();
    RethrowStoredException();  // a loop of newer frameworks only ends; older ones have done it
    return result;
}

void CAgentApp::OnTick() {
    ZelkaCore::CLuaInterpreter* lua = m_pLua.Get();
    if (lua == nullptr || !m_stallWatch.Look(*lua, *m_pDom)) {
        FeedWatchdog();
    }
    const RunPhase phase = m_phase;
    if (m_isService && (phase == RunPhase::kMain || phase == RunPhase::kTasks)) {
        m_packageTrials.Look(*m_pDom, Uptime());
    }
}

// No thread but the main one touches the loop: it runs the call itself. A result that comes before
// the loop is there waits for it, as the framework is still making what a queued call would wake.
void CAgentApp::EndMainLoop(int result) {
    const ZelkaCore::MutexLock lock(m_loopMutex);
    if (m_loopState == LoopState::kAwaited) {
        m_earlyResult = result;
    } else if (m_loopState == LoopState::kRunning) {
        QueueEndOfMainLoop(result);
    }
}

void CAgentApp::QueueEndOfMainLoop(int result) {
    CallAfter([this, result] {
        if (wxEventLoopBase* loop = GetMainLoop()) {
            loop->Exit(result);
        }
    });
}

void CAgentApp::OnEventLoopEnter(wxEventLoopBase* loop) {
    wxAppBase::OnEventLoopEnter(loop);
    if (loop == nullptr || !loop->IsMain()) {
        return;
    }
    WatchClock();
    WatchStopSignals();
    const ZelkaCore::MutexLock lock(m_loopMutex);
    m_loopState = LoopState::kRunning;
    if (m_earlyResult) {
        QueueEndOfMainLoop(*m_earlyResult);
    }
}

// A second signal ends the process at once, so that an application that does not listen can be
// ended.
void CAgentApp::WatchStopSignals() {
    if (!m_bHoldsStopSignals) {
        return;
    }
    const auto stop = [this] {
        wxLogVerbose("Asked to stop by a signal");
        (void)std::fputs(
            ToUtf8(GetAppName() + ": asked to stop; a second signal ends it at once\n").c_str(),
            stderr);
        m_pDom->RequestStop();
    };
    if (const auto error = StopSignals::Begin(stop, m_stopSignals)) {
        wxLogWarning("Signals cannot ask the application to stop: %s", FromUtf8(error.message()));
    }
}

void CAgentApp::OnEventLoopExit(wxEventLoopBase* loop) {
    if (loop != nullptr && loop->IsMain()) {
        const ZelkaCore::MutexLock lock(m_loopMutex);
        m_loopState = LoopState::kOver;
        m_clockWatch.reset();
        m_stopSignals.reset();
    }
    wxAppBase::OnEventLoopExit(loop);
}
