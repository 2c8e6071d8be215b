#pragma once

#include <map>
#include <string>

// The system's journal. Any thread; without one nothing happens, and nothing is waited for.

enum class JournalPriority { kError = 3, kWarning = 4, kInfo = 6 };

// Adds a message (UTF-8). `fields` are further ones by their names, which are ASCII, begin with a
// letter and have at most 64 letters, digits and underscores; in the journal they stand in upper
// case. What is named like the message or its priority is left out.
void SendToJournal(JournalPriority priority, const std::string& message,
                   const std::map<std::string, std::string>& fields = {});
