#include "zelka_core/log/journal.h"

#include <algorithm>
#include <atomic>

#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

std::atomic<bool> g_usesJournal = false;

// Whether a name is one of the host's own fields.
bool IsOwnName(const std::string& name) {
    return FromUtf8(name).Upper().StartsWith("ZELKA_");
}

}  // namespace

void UseJournal(const std::string& application, const std::string& workdir) {
    SetJournalFields(
        {{"ZELKA_APPLICATION", JournalText(application)}, {"ZELKA_WORKDIR", JournalText(workdir)}});
    g_usesJournal = true;
}

bool UsesJournal() {
    return g_usesJournal;
}

bool IsForJournal(wxLogLevel level) {
    return level <= wxLOG_Status;
}

JournalMessage JournalMessageOf(wxLogLevel level, const wxString& text, const LogFields& fields) {
    JournalMessage message{JournalPriority::kInfo, kJournalInfoId, JournalText(ToUtf8(text)), {}};
    if (level <= wxLOG_Error) {
        message.priority = JournalPriority::kError;
        message.id = kJournalErrorId;
    } else if (level == wxLOG_Warning) {
        message.priority = JournalPriority::kWarning;
        message.id = kJournalWarningId;
    }
    std::size_t room = kMaximumLogText;
    for (const auto& [name, value] : fields) {
        if (!IsOwnName(name)) {
            std::string shown = JournalText(value, room);
            room -= std::min(room, shown.size());
            message.fields[name] = std::move(shown);
        }
    }
    return message;
}

std::string JournalText(std::string_view text, std::size_t limit) {
    return BoundedLogText(PlainText(text), limit);
}

}  // namespace ZelkaCore
