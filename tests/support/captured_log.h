#pragma once

#include <wx/log.h>

#include <string>
#include <vector>

// Takes the log records of the thread that makes it, for as long as it lives.
class CapturedLog : public wxLog {
  public:
    CapturedLog();
    ~CapturedLog() override;

    // The texts of the records so far.
    [[nodiscard]] const std::vector<std::string>& Lines() const { return m_lines; }
    // All of them, with a line end behind each.
    [[nodiscard]] std::string Text() const;

  protected:
    void DoLogRecord(wxLogLevel level, const wxString& message,
                     const wxLogRecordInfo& info) override;

  private:
    const bool m_onMainThread;
    wxLog* m_outer;
    std::vector<std::string> m_lines;
};
