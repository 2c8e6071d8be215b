#pragma once

#include <wx/log.h>

#include <string>
#include <vector>

// Collects what is logged while it exists, in place of the active log target. Main thread only.
class LogLines : public wxLog {
  public:
    LogLines() : m_previous(wxLog::SetActiveTarget(this)) {}
    ~LogLines() override { (void)wxLog::SetActiveTarget(m_previous); }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    [[nodiscard]] const std::vector<std::string>& Lines() const { return m_lines; }

  protected:
    void DoLogRecord(wxLogLevel, const wxString& message, const wxLogRecordInfo&) override {
        m_lines.push_back(message.utf8_string());
    }

  private:
    wxLog* m_previous;
    std::vector<std::string> m_lines;
};
