#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "zelka_core/varlink/json.h"

// Reading replies of an agent that may be older or newer: what is not there, or is of another kind,
// reads "-", and nothing fails.

inline constexpr const char* kNotTold = "-";

// A text of the agent, fit for one line on a terminal: control characters are written out.
std::string Shown(std::string_view text);

// The same for a text of several lines, which keeps its lines and tabs.
std::string ShownLines(std::string_view text);

// One line of JSON, in ASCII.
std::string ToText(const ZelkaCore::Json& value);

// A value in words, not yet fit to be shown: texts as they are, everything else as JSON.
std::string RawText(const ZelkaCore::Json& value);

// Members of an object.
std::string MemberText(const ZelkaCore::Json& object, const char* member);  // shown
std::string RawMember(const ZelkaCore::Json& object, const char* member);   // "" if it is missing
std::optional<std::int64_t> MemberNumber(const ZelkaCore::Json& object, const char* member);
bool MemberFlag(const ZelkaCore::Json& object, const char* member);

// A member that has members or elements itself; without any if it is missing.
const ZelkaCore::Json& MemberPart(const ZelkaCore::Json& object, const char* member);

// Members that are numbers, in words: "3 h 5 min", "2026-01-31 12:00:00", "23.4 MiB".
std::string MemberDuration(const ZelkaCore::Json& object, const char* member);
std::string MemberTime(const ZelkaCore::Json& object, const char* member);
std::string MemberSize(const ZelkaCore::Json& object, const char* member);
