#pragma once

#include <wx/log.h>
#include <wx/thread.h>

#include <string>
#include <vector>

// Takes the log records of the thread that makes it, for as long as it lives.
class CapturedLog : public wxLog {
  public:
    CapturedLog() : m_outer(Activate(this)) {}
    ~CapturedLog() override { (void)Activate(m_outer); }

    // The texts of the records so far.
    [[nodiscard]] const std::vector<std::string>& Lines() const { return m_lines; }
    // All of them, with a line end behind each.
    [[nodiscard]] const std::string& Text() const { return m_text; }

  protected:
    void DoLogRecord(wxLogLevel, const wxString& message, const wxLogRecordInfo&) override {
        m_lines.push_back(message.utf8_string());
        m_text += m_lines.back() + "\n";
    }

  private:
    // Returns the target that was active before.
    static wxLog* Activate(wxLog* target) {
        return wxThread::IsMain() ? SetActiveTarget(target) : SetThreadActiveTarget(target);
    }

    wxLog* const m_outer;
    std::vector<std::string> m_lines;
    std::string m_text;
};
