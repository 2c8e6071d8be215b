#pragma once

#include <cstdint>
#include <span>

#include "platform/journal.h"

namespace ZelkaCore {

class CAgentEvent;

// Agent events as the system's journal gets them.

// What the journal knows as one kind of message: the events of one code of the host, or those of
// applications.
struct EventKind {
    int code;  // 0: all codes that have no kind of their own
    const char* id;
    const char* title;
    // Which parts of the data, with '|' between them, say what it happened to, counted from 0. The
    // third part reaches to the end.
    int firstPart;
    int lastPart;
};

// All kinds, that of applications last.
[[nodiscard]] std::span<const EventKind> EventKinds();

// The event with that id in the database. Its data takes 32 KiB at most, as JournalText.
[[nodiscard]] JournalMessage JournalMessageOf(const CAgentEvent& event, std::int64_t id);

// Gives it to the journal, if that is used (zelka_core/log/journal.h). For an event that is on the
// disk.
void TellJournal(const CAgentEvent& event, std::int64_t id);

}  // namespace ZelkaCore
