#pragma once

class wxString;

// Says why the host itself ends a start: in the log, and on standard error, where whoever started
// it looks first.
void ReportFailedStart(const wxString& reason);
