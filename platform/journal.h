#pragma once

#include <chrono>
#include <map>
#include <string>

// The system's journal. Any thread; without one nothing happens.

enum class JournalPriority {
    kCritical = 2,
    kError = 3,
    kWarning = 4,
    kNotice = 5,
    kInfo = 6,
    kDebug = 7
};

// Texts are UTF-8. The names of fields are ASCII, begin with a letter and have at most 64 letters,
// digits and underscores; in the journal they stand in upper case.
using JournalFields = std::map<std::string, std::string>;

struct JournalMessage {
    JournalPriority priority = JournalPriority::kInfo;
    std::string id;  // of its kind: 128 bits in 32 hexadecimal digits; may be empty
    std::string text;
    // What is named like the text, the priority, the id or a field of all messages is left out.
    JournalFields fields;
};

// The kind of the message which tells that some are missing.
inline constexpr const char* kJournalGapId = "984c50b2ac2d461099ab7a79388d402c";

// From now on every message of this process has these fields.
void SetJournalFields(JournalFields fields);

// Adds a message. Nothing is waited for, so a lock may be held: what the journal has no room for
// now waits in memory, up to 8 MiB, and goes there in its order. A message that finds no room there
// either, or that is too large for the journal's socket (it takes about 200 KiB), is left out, and
// the next one that goes there has a message in front of it which tells how many are missing.
void SendToJournal(const JournalMessage& message);

// Returns when the journal has all messages, or `limit` has passed: for the end of the process,
// with which those that still wait are lost.
void SettleJournal(std::chrono::milliseconds limit);
