// The clock is watched for as long as the main loop runs.

#include <wx/evtloop.h>
#include <wx/log.h>

#include "apps/zelka/zelka.h"

void CAgentApp::OnEventLoopEnter(wxEventLoopBase* loop) {
    wxAppBase::OnEventLoopEnter(loop);
    if (loop == nullptr || !loop->IsMain()) {
        return;
    }
    m_clockWatch = ClockChangeWatch::Begin([this] {
        if (auto* frame = dynamic_cast<wxFrame*>(GetTopWindow())) {
            (void)frame->MSWWindowProc(WM_TIMECHANGE, 0, 0);
        }
    });
    if (m_clockWatch == nullptr) {
        wxLogWarning("The clock is not watched: %s", wxSysErrorMsgStr(GetLastError()));
    }
}

void CAgentApp::OnEventLoopExit(wxEventLoopBase* loop) {
    if (loop != nullptr && loop->IsMain()) {
        m_clockWatch.reset();
    }
    wxAppBase::OnEventLoopExit(loop);
}
