#include "tests/support/captured_log.h"

#include <wx/thread.h>

CapturedLog::CapturedLog()
    : m_onMainThread(wxThread::IsMain()),
      m_outer(m_onMainThread ? wxLog::SetActiveTarget(this) : wxLog::SetThreadActiveTarget(this)) {
}

CapturedLog::~CapturedLog() {
    (void)(m_onMainThread ? wxLog::SetActiveTarget(m_outer)
                          : wxLog::SetThreadActiveTarget(m_outer));
}

std::string CapturedLog::Text() const {
    std::string text;
    for (const std::string& line : m_lines) {
        text += line + "\n";
    }
    return text;
}

void CapturedLog::DoLogRecord(wxLogLevel, const wxString& message, const wxLogRecordInfo&) {
    m_lines.push_back(message.utf8_string());
}
