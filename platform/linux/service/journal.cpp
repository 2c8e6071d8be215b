#include "platform/journal.h"

// The place in the source is that of this file for every message: better none.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

void SendToJournal(JournalPriority priority, const std::string& message) {
    (void)sd_journal_send("MESSAGE=%s", message.c_str(), "PRIORITY=%i", static_cast<int>(priority),
                          nullptr);
}
