#include "apps/zelkctl/told_log.h"

#include "apps/zelkctl/output.h"
#include "apps/zelkctl/reply.h"
#include "zelka_core/text.h"

ToldLog::ToldLog() : m_outer(SetActiveTarget(this)), m_wasEnabled(EnableLogging(true)) {
}

ToldLog::~ToldLog() {
    (void)EnableLogging(m_wasEnabled);
    (void)SetActiveTarget(m_outer);
}

void ToldLog::DoLogRecord(wxLogLevel level, const wxString& text, const wxLogRecordInfo&) {
    if (level <= wxLOG_Warning) {
        Tell(Shown(ZelkaCore::ToUtf8(text)));
    }
}
