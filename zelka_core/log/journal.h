#pragma once

#include <wx/log.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/journal.h"
#include "zelka_core/log/log_fields.h"
#include "zelka_core/log/log_text.h"

namespace ZelkaCore {

// What the system's journal gets: from UseJournal on, records of the log and agent events
// (zelka_core/store/event_journal.h). docs/journal.md describes it for those who read it. Any
// thread.

// From now on the journal is used. Every message has both texts, as ZELKA_APPLICATION and
// ZELKA_WORKDIR.
void UseJournal(const std::string& application, const std::string& workdir);
[[nodiscard]] bool UsesJournal();

// The kinds of messages that are log records.
inline constexpr const char* kJournalErrorId = "a0809f799e3c4c01a616f44b9e6dabc4";
inline constexpr const char* kJournalWarningId = "b22354aeb1334090baed086200f0f2b4";
inline constexpr const char* kJournalInfoId = "9f30c0e134c247f7bc3ecd1016b67791";

// Whether records of the level go to the journal: errors, warnings and info.
[[nodiscard]] bool IsForJournal(wxLogLevel level);

// Such a record. Of the fields those go along whose names do not begin with ZELKA_, in upper or
// lower case; their values take about 64 KiB at most.
[[nodiscard]] JournalMessage JournalMessageOf(wxLogLevel level, const wxString& text,
                                              const LogFields& fields);

// A text (UTF-8) as it may stand in the journal: control characters are written out, and of what is
// beyond the limit, in bytes, it says how much it is.
[[nodiscard]] std::string JournalText(std::string_view text, std::size_t limit = kMaximumLogText);

}  // namespace ZelkaCore
