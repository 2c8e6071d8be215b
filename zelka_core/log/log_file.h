#pragma once

#include <wx/string.h>

#include <string>

// The one file that log and trace are written to. Until it is opened lines wait in memory; lines
// that still wait when the process ends go to standard error. Every function may be called from any
// thread, and none reports a failure to its caller: what the file does not take goes to standard
// error, after one line that says why.

namespace ZelkaCore {

// Opens (makes) `<folder>/<name>.log`, its folder with mode 0700 and the file with mode 0600, and
// writes the lines that wait. The file is followed by `<name>.1.log` to `<name>.5.log` when it has
// grown to 10 MiB. A separator in `name` becomes an underscore. False if that failed: the lines go
// to standard error from now on.
bool OpenLogFile(const wxString& folder, const wxString& name);

// Writes a line (UTF-8, without its end). The system has it when the call returns, so that a crash
// of the process loses none. A text of several lines has a tab in front of all but the first, so
// that it cannot be taken for several records, and control characters are written out (log_text.h).
void WriteLogLine(const std::string& line);

// Ends the log and hands waiting lines to standard error. Called at the end of the process in any
// case; lines written later go to standard error.
void CloseLogFile();

}  // namespace ZelkaCore
