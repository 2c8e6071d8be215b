#include "platform/journal.h"

// The place in the source is that of this file for every message: better none.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <sys/uio.h>
#include <systemd/sd-journal.h>

#include <algorithm>
#include <vector>

namespace {

constexpr const char* kMessage = "MESSAGE";
constexpr const char* kPriority = "PRIORITY";

std::string UpperCase(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(), [](char c) {
        return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    });
    return name;
}

std::string Assignment(const std::string& name, const std::string& value) {
    return name + '=' + value;
}

}  // namespace

void SendToJournal(JournalPriority priority, const std::string& message,
                   const std::map<std::string, std::string>& fields) {
    std::vector<std::string> lines{
        Assignment(kMessage, message),
        Assignment(kPriority, std::to_string(static_cast<int>(priority)))};
    lines.reserve(lines.size() + fields.size());
    for (const auto& [name, value] : fields) {
        const std::string journalName = UpperCase(name);
        if (journalName != kMessage && journalName != kPriority) {
            lines.push_back(Assignment(journalName, value));
        }
    }
    std::vector<iovec> parts;
    parts.reserve(lines.size());
    for (std::string& line : lines) {
        parts.push_back({.iov_base = line.data(), .iov_len = line.size()});
    }
    (void)sd_journal_sendv(parts.data(), static_cast<int>(parts.size()));
}
