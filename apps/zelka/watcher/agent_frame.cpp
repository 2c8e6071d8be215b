#include "apps/zelka/watcher/agent_frame.h"

#include "zelka_core/log_file.h"

namespace {

constexpr int kTimerId = 5999;

}  // namespace

wxBEGIN_EVENT_TABLE(CAgentFrame, wxFrame) EVT_TIMER(kTimerId, CAgentFrame::OnTimer)
    wxEND_EVENT_TABLE()

        CAgentFrame::CAgentFrame(wxWindow* parent, const wxString& title)
    : wxFrame(parent, wxID_ANY, title), m_timer(this, kTimerId) {
}

// Lines of the log wait no longer than a second for who follows the file.
void CAgentFrame::OnTimer(wxTimerEvent&) {
    ZelkaCore::FlushLogFile();
}
