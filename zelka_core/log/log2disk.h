#pragma once

#include <wx/log.h>

namespace ZelkaCore {

// The log target: writes each record as one line, `2026-01-31 12:00:00 error   text`, to the log
// file, and what the journal gets of them to that (journal.h). Targets share the file and may be
// used from any thread.
class CLog2Disk : public wxLog {
  public:
    CLog2Disk();

  protected:
    void DoLogRecord(wxLogLevel level, const wxString& text, const wxLogRecordInfo& info) override;
    void DoLogTextAtLevel(wxLogLevel level, const wxString& text) override;
};

// Lets the records of a thread go to the log at once, for as long as it is there. Without a target
// of their own they wait for the main loop, behind later trace lines, and are lost when a script
// ends the process.
class ThreadLogTarget {
  public:
    ThreadLogTarget() { delete wxLog::SetThreadActiveTarget(new CLog2Disk); }
    ~ThreadLogTarget() { delete wxLog::SetThreadActiveTarget(nullptr); }
    ThreadLogTarget(const ThreadLogTarget&) = delete;
    ThreadLogTarget& operator=(const ThreadLogTarget&) = delete;
};

}  // namespace ZelkaCore
