#include "apps/zelkctl/events_table.h"

#include "apps/zelkctl/reply.h"

namespace {

Tone ToneOf(const std::string& severity) {
    if (severity == "fatal" || severity == "error") {
        return Tone::kBad;
    }
    return severity == "warning" ? Tone::kWarning : Tone::kPlain;
}

}  // namespace

Table EventsTable() {
    return Table({"ID", "TIME", "SEVERITY", "CODE", "DATA"});
}

void AddEvents(const ZelkaCore::Json& events, Table& table) {
    for (const auto& event : events) {
        const std::string severity = MemberText(event, "severity");
        table.Add({MemberText(event, "id"), MemberTime(event, "time"),
                   Cell(severity, ToneOf(severity)), MemberText(event, "code"),
                   MemberText(event, "data")});
    }
}
