#pragma once

#include <wx/timer.h>

#include <cstdint>

#include "platform/headless.h"
#include "platform/ip_helper.h"

// The hidden frame, which watches the host: a setting of the system clock reaches it as a message
// and raises the condition `app.clockChange`, a change of the IP addresses is asked for once a
// second and raises `app.netAdaptersChanged`. All of it runs on the main thread.
class CAgentFrame : public wxFrame {
  public:
    CAgentFrame(wxWindow* parent, const wxString& title);

    wxTimer& Timer() { return m_timer; }

    // Takes WM_TIMECHANGE and hands every message on.
    WXLRESULT MSWWindowProc(WXUINT message, WXWPARAM wParam, WXLPARAM lParam) override;

  private:
    void OnTimer(wxTimerEvent& event);
    bool PollAddrChange();

    OVERLAPPED m_overlapped;              // of the notification of address changes
    std::uint32_t m_lastClockChangeTick;  // when app.clockChange was raised last
    wxTimer m_timer;

    wxDECLARE_EVENT_TABLE();
};
