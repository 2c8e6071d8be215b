#pragma once

#include <wx/log.h>

namespace ZelkaCore {

// The log target: writes each record as one line, `2026-01-31 12:00:00 error   text`, to the log
// file. Targets share the file and may be used from any thread.
class CLog2Disk : public wxLog {
  public:
    CLog2Disk();

  protected:
    void DoLogTextAtLevel(wxLogLevel level, const wxString& text) override;
};

}  // namespace ZelkaCore
