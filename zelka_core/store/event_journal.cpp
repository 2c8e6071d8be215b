#include "zelka_core/store/event_journal.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "zelka_core/log/journal.h"
#include "zelka_core/store/agent_event.h"
#include "zelka_core/store/agent_event_codes.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

constexpr std::size_t kMostData = std::size_t{32} * 1024;  // bytes
constexpr std::size_t kMostText = std::size_t{2} * 1024;   // bytes of data in the text
constexpr std::size_t kParts = 3;

constexpr std::array kKinds{
    EventKind{kEventPackageInstalled, "c8c1c61799d44a33baf54b98a366aca1", "A package was installed",
              1, 1},
    EventKind{kEventPackageNotInstalled, "1cd159f9b73b40279788008e87854f43",
              "A package could not be installed", 1, 1},
    EventKind{kEventPackageTakenBack, "30e928bf38fd409d8b8cea1ea6756a3f",
              "A package has failed its trial and was taken back", 1, 1},
    EventKind{kEventPackageRemoved, "81e42474244644eea7b4aa7d1710bbaf",
              "The files that a package names were removed", 1, 1},
    EventKind{kEventPackageNotRemoved, "71020e9aa22a45f8956078803ff10c53",
              "The files that a package names could not be removed", 1, 1},
    EventKind{kEventTaskFailed, "14e85decfa48446396b5f9699a97bfec", "A task has failed", 1, 2},
    EventKind{kEventStalled, "3af8a26ebf884094acbf283a2c52cff1",
              "The application runs without waiting", 1, 1},
    EventKind{0, "a09daf6ea01340b7a2779147b7829d78", "Agent event", 0, 0},
};

const EventKind& KindOf(int code) {
    const auto* const found = std::find_if(kKinds.begin(), kKinds.end() - 1,
                                           [code](const EventKind& k) { return k.code == code; });
    return *found;
}

JournalPriority PriorityOf(CAgentEvent::_EventSeverity severity) {
    switch (severity) {
        case CAgentEvent::SeverityFatal:
            return JournalPriority::kCritical;
        case CAgentEvent::SeverityError:
            return JournalPriority::kError;
        case CAgentEvent::SeverityWarning:
            return JournalPriority::kWarning;
        case CAgentEvent::SeverityNotice:
            return JournalPriority::kNotice;
        case CAgentEvent::SeverityInfo:
            return JournalPriority::kInfo;
        default:
            return JournalPriority::kDebug;
    }
}

std::vector<std::string_view> PartsOf(std::string_view data) {
    std::vector<std::string_view> parts;
    while (parts.size() + 1 < kParts && data.find('|') != std::string_view::npos) {
        parts.push_back(data.substr(0, data.find('|')));
        data.remove_prefix(parts.back().size() + 1);
    }
    parts.push_back(data);
    return parts;
}

// What the event is about: all of its data, if that is not as the host writes it.
std::string SubjectOf(const EventKind& kind, const std::string& data) {
    const std::vector<std::string_view> parts = PartsOf(data);
    if (kind.code == 0 || std::ssize(parts) <= kind.lastPart) {
        return data;
    }
    std::string subject;
    for (int part = kind.firstPart; part <= kind.lastPart; ++part) {
        subject += part == kind.firstPart ? "" : ": ";
        subject += parts[static_cast<std::size_t>(part)];
    }
    return subject;
}

std::string TextOf(const EventKind& kind, int code, const std::string& data) {
    std::string text = kind.title;
    if (kind.code == 0) {
        text += " " + std::to_string(code);
    }
    const std::string subject = JournalText(SubjectOf(kind, data), kMostText);
    return subject.empty() ? text : text + ": " + subject;
}

}  // namespace

std::span<const EventKind> EventKinds() {
    return kKinds;
}

JournalMessage JournalMessageOf(const CAgentEvent& event, std::int64_t id) {
    const int code = event.GetEventCode();
    const EventKind& kind = KindOf(code);
    const std::string data = ToUtf8(event.GetData());
    return {PriorityOf(event.GetSeverity()),
            kind.id,
            TextOf(kind, code, data),
            {{"ZELKA_EVENT_CODE", std::to_string(code)},
             {"ZELKA_EVENT_DATA", JournalText(data, kMostData)},
             {"ZELKA_EVENT_ID", std::to_string(id)},
             {"ZELKA_EVENT_SEVERITY", CAgentEvent::NameOf(event.GetSeverity())},
             {"ZELKA_EVENT_TIME", std::to_string(event.GetJTime())}}};
}

void TellJournal(const CAgentEvent& event, std::int64_t id) {
    if (UsesJournal()) {
        SendToJournal(JournalMessageOf(event, id));
    }
}

}  // namespace ZelkaCore
