#pragma once

#include <wx/timer.h>

#include "platform/headless.h"

// The hidden frame: what the host has to do once a second happens here, on the main thread.
class CAgentFrame : public wxFrame {
  public:
    CAgentFrame(wxWindow* parent, const wxString& title);

    wxTimer& Timer() { return m_timer; }

  private:
    void OnTimer(wxTimerEvent& event);

    wxTimer m_timer;

    wxDECLARE_EVENT_TABLE();
};
