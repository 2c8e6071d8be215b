#include "platform/journal.h"

#include <utility>

#include "platform/linux/service/journal_sender.h"

namespace {

// Never destroyed, as threads may log to the very end.
JournalSender& TheSender() {
    static auto* sender = new JournalSender("/run/systemd/journal/socket");
    return *sender;
}

}  // namespace

void SetJournalFields(JournalFields fields) {
    TheSender().SetFields(std::move(fields));
}

void SendToJournal(const JournalMessage& message) {
    TheSender().Send(message);
}

void SettleJournal(std::chrono::milliseconds limit) {
    TheSender().Settle(limit);
}
