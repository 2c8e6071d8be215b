#include "zelka_core/log/log2disk.h"

#include <wx/datetime.h>

#include "zelka_core/log/journal.h"
#include "zelka_core/log/log_fields.h"
#include "zelka_core/log/log_file.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

const char* LevelName(wxLogLevel level) {
    switch (level) {
        case wxLOG_FatalError:
            return "fatal";
        case wxLOG_Error:
            return "error";
        case wxLOG_Warning:
            return "warning";
        case wxLOG_Message:
        case wxLOG_Status:
            return "info";
        case wxLOG_Info:
            return "verbose";
        default:
            return "debug";
    }
}

// Time stamp and level in columns, in front of the text.
class ColumnFormatter : public wxLogFormatter {
  public:
    [[nodiscard]] wxString Format(wxLogLevel level, const wxString& text,
                                  const wxLogRecordInfo& info) const override {
        const wxDateTime time(wxLongLong(info.timestampMS));
        return wxString::Format("%s %-7s %s", time.Format(wxLog::GetTimestamp()), LevelName(level),
                                text);
    }
};

}  // namespace

CLog2Disk::CLog2Disk() {
    delete SetFormatter(new ColumnFormatter);
}

void CLog2Disk::DoLogRecord(wxLogLevel level, const wxString& text, const wxLogRecordInfo& info) {
    if (UsesJournal() && IsForJournal(level)) {
        SendToJournal(JournalMessageOf(level, text, FieldsOf(info)));
    }
    wxLog::DoLogRecord(level, text, info);
}

void CLog2Disk::DoLogTextAtLevel(wxLogLevel, const wxString& text) {
    WriteLogLine(ToUtf8(text));
}

}  // namespace ZelkaCore
