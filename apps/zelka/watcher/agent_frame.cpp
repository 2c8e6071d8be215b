#include "apps/zelka/watcher/agent_frame.h"

#include <wx/log.h>

#include "apps/zelka/watcher/clock_rule.h"
#include "apps/zelka/zelka.h"
#include "platform/clock_change.h"
#include "zelka_core/log/trace.h"
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
    m_overlapped.hEvent = WSACreateEvent();
}

// The notification goes before the record that it is kept in.
CAgentFrame::~CAgentFrame() {
    if (m_hAddrChange != 0) {
        (void)CancelIPChangeNotify(&m_overlapped);
    }
    if (m_overlapped.hEvent != 0) {
        (void)WSACloseEvent(m_overlapped.hEvent);
        m_overlapped.hEvent = 0;
    }
}

WXLRESULT CAgentFrame::MSWWindowProc(WXUINT message, WXWPARAM wParam, WXLPARAM lParam) {
    if (message == WM_TIMECHANGE) {
        const std::uint32_t now = ZelkaCore::SystemTickCount();
        ZELKA_TRACE("Appl", "CAgentFrame::MSWWindowProc", "Received a WM_TIMECHANGE message.");
        if (IsClockChangeTold(now, m_lastClockChangeTick)) {
            (void)TheAgentApp().Dom()->ConditionRaise("app.clockChange");
            m_lastClockChangeTick = now;
        }
    }
    return wxFrame::MSWWindowProc(message, wParam, lParam);
}

// A notification that fires is armed again by the next tick, so that a run of changes is told once
// in two seconds at most.
void CAgentFrame::OnTimer(wxTimerEvent&) {
    if (m_hAddrChange != 0 && PollAddrChange()) {
        return;
    }
    if (m_hAddrChange == 0) {
        ArmAddrChange();
    }
}

// True if the notification has fired. One that cannot be asked is given up.
bool CAgentFrame::PollAddrChange() {
    DWORD bytes = 0;
    if (GetOverlappedResult(m_hAddrChange, &m_overlapped, &bytes, false)) {
        ZELKA_TRACE("Appl", "CAgentFrame::OnTimer",
                    "NotifyAddrChange() says our network has changed.");
        (void)TheAgentApp().Dom()->ConditionRaise("app.netAdaptersChanged");
        m_hAddrChange = 0;
        return true;
    }
    if (const DWORD code = GetLastError(); code != ERROR_IO_INCOMPLETE) {
        wxLogSysError(static_cast<long>(code), "GetOverlappedResult()");
        (void)CancelIPChangeNotify(&m_overlapped);
        m_hAddrChange = 0;
    }
    return false;
}

void CAgentFrame::ArmAddrChange() {
    if (NotifyAddrChange(&m_hAddrChange, &m_overlapped) == 0) {
        return;
    }
    if (const DWORD code = WSAGetLastError(); code != ERROR_IO_PENDING) {
        wxLogSysError(static_cast<long>(code), "NotifyAddrChange()");
    }
}
