#include "apps/zelka/watcher/agent_frame.h"

namespace {

constexpr int kTimerId = 5999;

}  // namespace

wxBEGIN_EVENT_TABLE(CAgentFrame, wxFrame) EVT_TIMER(kTimerId, CAgentFrame::OnTimer)
    wxEND_EVENT_TABLE()

        CAgentFrame::CAgentFrame(wxWindow* parent, const wxString& title)
    : wxFrame(parent, wxID_ANY, title), m_timer(this, kTimerId) {
}

// The tick itself wakes the main loop: log records of the script thread wait for that no longer than
// a second.
void CAgentFrame::OnTimer(wxTimerEvent&) {}
