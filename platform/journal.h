#pragma once

#include <string>

// The system's journal. Any thread; without one nothing happens, and nothing is waited for.

enum class JournalPriority { kError = 3, kWarning = 4, kInfo = 6 };

// Adds a message (UTF-8).
void SendToJournal(JournalPriority priority, const std::string& message);
