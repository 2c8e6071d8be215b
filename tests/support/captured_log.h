#pragma once

#include <wx/log.h>

#include <string>

// Takes the log records of the thread that makes it, for as long as it lives.
class CapturedLog : public wxLog {
  public:
    CapturedLog();
    ~CapturedLog() override;

    // The records so far, a line each.
    [[nodiscard]] const std::string& Text() const { return m_text; }

  protected:
    void DoLogText(const wxString& text) override;

  private:
    const bool m_onMainThread;
    wxLog* m_outer;
    std::string m_text;
};
