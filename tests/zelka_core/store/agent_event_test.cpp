#include "zelka_core/store/agent_event.h"

#include <gtest/gtest.h>
#include <wx/log.h>

namespace ZelkaCore {
namespace {

TEST(AgentEvent, SeverityFollowsTheLogLevelAndKnowsItsName) {
    EXPECT_EQ(CAgentEvent::ToSeverity(wxLOG_Error), CAgentEvent::SeverityError);
    EXPECT_EQ(CAgentEvent::ToSeverity(~0UL), CAgentEvent::SeverityDebug);
    for (unsigned long level = wxLOG_FatalError; level <= wxLOG_Trace; ++level) {
        // What was stored as a number is read back as the same severity.
        const auto severity = CAgentEvent::ToSeverity(level);
        EXPECT_EQ(CAgentEvent::ToSeverity(static_cast<unsigned long>(severity)), severity);
        EXPECT_EQ(CAgentEvent::SeverityFromName(CAgentEvent::SeverityName(severity)), severity);
    }
}

}  // namespace
}  // namespace ZelkaCore
