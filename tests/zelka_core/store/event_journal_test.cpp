#include "zelka_core/store/event_journal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "tests/support/scratch_folder.h"
#include "zelka_core/log/journal.h"
#include "zelka_core/store/agent_event.h"
#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

JournalMessage MessageOf(int code, const std::string& data,
                         CAgentEvent::_EventSeverity severity = CAgentEvent::SeverityInfo) {
    return JournalMessageOf(CAgentEvent::Now(code, severity, FromUtf8(data)), 7);
}

TEST(EventJournal, TheTextNamesWhatHappenedToWhom) {
    for (const auto& [code, data, text] :
         {std::tuple{5101, "X|Feature-X-1|/a|b", "A package was installed: Feature-X-1"},
          {5106, "X|Y|/z", "The files that a package names could not be removed: Y"},
          {5201, "task|sample|a|b", "A task has failed: sample: a|b"},
          {5202, "stall|a.lua:3", "The application runs without waiting: a.lua:3"},
          {5202, "of somebody else", "The application runs without waiting: of somebody else"},
          {-9, "a|b\n\x1b", "Agent event -9: a|b\n\\x1b"},
          {42, "", "Agent event 42"}}) {
        EXPECT_EQ(MessageOf(code, data).text, text);
    }
}

TEST(EventJournal, SeveritiesArePrioritiesAndTheFieldsHaveTheEvent) {
    int priority = 2;
    for (const char* severity : {"fatal", "error", "warning", "notice", "info", "debug"}) {
        const JournalMessage message =
            MessageOf(42, "d\x7f", CAgentEvent::SeverityFromName(severity).value());
        EXPECT_EQ(static_cast<int>(message.priority), priority++);
        JournalFields fields = message.fields;
        EXPECT_GT(std::stoll(fields["ZELKA_EVENT_TIME"]), 1'700'000'000'000);
        fields.erase("ZELKA_EVENT_TIME");
        EXPECT_EQ(fields, (JournalFields{{"ZELKA_EVENT_CODE", "42"},
                                         {"ZELKA_EVENT_DATA", "d\\x7f"},
                                         {"ZELKA_EVENT_ID", "7"},
                                         {"ZELKA_EVENT_SEVERITY", severity}}));
    }
}

TEST(EventJournal, NoMessageIsTooLargeForTheJournal) {
    const std::string large(std::size_t{1} << 20U, '\x01');
    const JournalMessage event = MessageOf(42, large);
    EXPECT_LT(event.text.size() + event.fields.at("ZELKA_EVENT_DATA").size(), 40'000U);
    const JournalMessage record =
        JournalMessageOf(wxLOG_Error, FromUtf8(large), {{"a", large}, {"b", large}});
    EXPECT_LT(record.text.size() + record.fields.at("a").size() + record.fields.at("b").size(),
              140'000U);
}

TEST(LogJournal, ErrorsWarningsAndInfoGoThereWithTheirFieldsAndNothingElse) {
    for (const auto& [level, priority, id] : {std::tuple{wxLOG_Error, 3, kJournalErrorId},
                                              {wxLOG_Warning, 4, kJournalWarningId},
                                              {wxLOG_Message, 6, kJournalInfoId}}) {
        const JournalMessage message =
            JournalMessageOf(level, "text\x1b", {{"a", "b\x1b"}, {"zelka_event_code", "1"}});
        EXPECT_TRUE(IsForJournal(level));
        EXPECT_EQ(static_cast<int>(message.priority), priority);
        EXPECT_EQ(message.id, id);
        EXPECT_EQ(message.text, "text\\x1b");
        EXPECT_EQ(message.fields, (JournalFields{{"a", "b\\x1b"}}));
    }
    EXPECT_FALSE(IsForJournal(wxLOG_Info));
    EXPECT_FALSE(IsForJournal(wxLOG_Trace));
}

// The ids that stand in a file of the sources, and what of each line the expression finds.
std::multiset<std::string> FoundIn(const char* file, const std::string& expression) {
    const std::string text = ReadFile(fs::path(SOURCES) / file);
    const std::regex wanted(expression);
    std::multiset<std::string> found;
    for (std::sregex_iterator it(text.begin(), text.end(), wanted), end; it != end; ++it) {
        found.insert(it->str(1) + (it->size() > 2 ? " " + it->str(2) : ""));
    }
    return found;
}

TEST(EventJournal, GuideAndCatalogKnowEveryKindAndNoOther) {
    std::multiset<std::string> ids{kJournalErrorId, kJournalWarningId, kJournalInfoId,
                                   kJournalGapId};
    std::multiset<std::string> codes;
    for (const EventKind& kind : EventKinds()) {
        ids.insert(kind.id);
        if (kind.code != 0) {
            codes.insert(std::string(kind.id) + " " + std::to_string(kind.code));
        }
    }
    EXPECT_EQ(FoundIn("docs/journal.md", "\n\\| `([0-9a-f]{32})`"), ids);
    EXPECT_EQ(FoundIn("docs/journal.md", "\n\\| `([0-9a-f]{32})`[^\n]*\\| ([0-9]+) \\| [0-9] "),
              codes);
    EXPECT_EQ(FoundIn("packaging/journal/zelka.catalog", "\n-- ([0-9a-f]{32})\n"), ids);
}

}  // namespace
}  // namespace ZelkaCore
