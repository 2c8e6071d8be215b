#include "apps/zelka/watcher/agent_frame.h"

#include "apps/zelka/watcher/clock_rule.h"
#include "apps/zelka/zelka.h"
#include "platform/clock_change.h"
#include "zelka_core/log/system_error.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/system/clocks.h"

namespace {

constexpr int kTimerId = 5999;

}  // namespace

// clang-format off
wxBEGIN_EVENT_TABLE(CAgentFrame, wxFrame)
    EVT_TIMER(kTimerId, CAgentFrame::OnTimer)
wxEND_EVENT_TABLE()
    // clang-format on

    CAgentFrame::CAgentFrame(wxWindow* parent, const wxString& title)
    : wxFrame(parent, wxID_ANY, title),
      m_lastClockChangeTick(ZelkaCore::SystemTickCount()),
      m_timer(this, kTimerId) {
}

WXLRESULT CAgentFrame::MSWWindowProc(WXUINT message, WXWPARAM wParam, WXLPARAM lParam) {
    if (message == WM_TIMECHANGE) {
        const std::uint32_t now = ZelkaCore::SystemTickCount();
        ZELKA_TRACE("Appl", "CAgentFrame::MSWWindowProc", "Received a WM_TIMECHANGE message.");
        if (IsClockChangeReported(now, m_lastClockChangeTick)) {
            (void)TheAgentApp().Dom()->ConditionRaise("app.clockChange");
            m_lastClockChangeTick = now;
        }
    }
    return wxFrame::MSWWindowProc(message, wParam, lParam);
}

// A notification that fires is armed again by the next tick, so that a run of changes is told once
// in two seconds at most.
void CAgentFrame::OnTimer(wxTimerEvent&) {
    if (m_overlapped.IsArmed() && PollAddrChange()) {
        return;
    }
    if (m_overlapped.IsArmed()) {
        return;
    }
    if (const auto error = NotifyAddrChange(m_overlapped)) {
        ZelkaCore::LogSystemError(error, "NotifyAddrChange()");
    }
}

// True if the notification has fired. One that cannot be asked is given up.
bool CAgentFrame::PollAddrChange() {
    bool hasFired = false;
    if (const auto error = GetOverlappedResult(m_overlapped, hasFired)) {
        ZelkaCore::LogSystemError(error, "GetOverlappedResult()");
        CancelIPChangeNotify(m_overlapped);
    }
    if (hasFired) {
        ZELKA_TRACE("Appl", "CAgentFrame::OnTimer",
                    "NotifyAddrChange() says our network has changed.");
        (void)TheAgentApp().Dom()->ConditionRaise("app.netAdaptersChanged");
    }
    return hasFired;
}
