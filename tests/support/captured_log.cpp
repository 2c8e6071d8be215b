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

void CapturedLog::DoLogText(const wxString& text) {
    m_text += text.utf8_string() + "\n";
}
