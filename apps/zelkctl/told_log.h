#pragma once

#include <wx/log.h>

// Has the errors and warnings that the agent's own code logs told on standard error, for as long as
// it lives. One at a time, on the main thread.
class ToldLog : public wxLog {
  public:
    ToldLog();
    ~ToldLog() override;
    ToldLog(const ToldLog&) = delete;
    ToldLog& operator=(const ToldLog&) = delete;

  protected:
    void DoLogRecord(wxLogLevel level, const wxString& text, const wxLogRecordInfo& info) override;

  private:
    wxLog* const m_outer;
    const bool m_wasEnabled;
};
