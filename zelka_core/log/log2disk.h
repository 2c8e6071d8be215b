#pragma once

#include <wx/log.h>

namespace ZelkaCore {

// The log target: writes each record as one line, `2026-01-31 12:00:00 error   text`, to the log
// file. Targets share the file and may be used from any thread.
class CLog2Disk : public wxLog {
  public:
    CLog2Disk();

    // From here on errors and warnings of every target go to the system's journal, too, with their
    // fields (log_fields.h).
    static void UseJournal();

  protected:
    void DoLogRecord(wxLogLevel level, const wxString& text, const wxLogRecordInfo& info) override;
    void DoLogTextAtLevel(wxLogLevel level, const wxString& text) override;
};

}  // namespace ZelkaCore
