// The run phase: the main thread keeps the event loop while the script thread does the work.

#include <wx/evtloop.h>
#include <wx/log.h>

#include "apps/zelka/host/script_thread.h"
#include "apps/zelka/watcher/agent_frame.h"
#include "apps/zelka/zelka.h"
#include "platform/service.h"

namespace {

constexpr int kTimerInterval = 1000;          // milliseconds
constexpr unsigned int kNormalPriority = 50;  // of 0 to 100

}  // namespace

int CAgentApp::OnRun() {
    SelectCryptoProvider();
    if (!m_bBackground) {
        wxLog::SetLogLevel(wxLOG_Max);
        UnblockServiceSignals();
    }
    m_pParentWindow = new wxWindow;
    auto* frame = new CAgentFrame(m_pParentWindow, GetAppName());  // goes in CleanUp
    SetTopWindow(frame);
    (void)frame->Show(false);
    SetExitOnFrameDelete(!m_bBackground);
    (void)frame->Timer().Start(kTimerInterval, false);

    CScriptThread script;
    (void)script.SetDom(m_pDom);
    script.start(kNormalPriority, true, 0);
    if (!script.IsStarted()) {
        return -1;
    }
    const int result = wxAppBase::OnRun();
    script.requestExit();
    (void)script.join();
    return result;
}

// The loop runs the call itself: it is kept if it comes before the loop exists, and no thread but
// the main one touches the loop.
void CAgentApp::EndMainLoop(int result) {
    CallAfter([this, result] {
        if (wxEventLoopBase* loop = GetMainLoop()) {
            loop->Exit(result);
        }
    });
}
