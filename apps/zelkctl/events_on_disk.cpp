#include "apps/zelkctl/events_on_disk.h"

#include <array>
#include <filesystem>
#include <vector>

#include "apps/zelkctl/zelkctl.h"
#include "platform/file.h"
#include "zelka_core/store/agent_database.h"
#include "zelka_core/text.h"

namespace {

using ZelkaCore::CAgentEvent;
using ZelkaCore::Json;
using ZelkaCore::StoredAgentEvent;

constexpr std::size_t kLast = 20;  // events, if nothing says which

std::string SeverityName(CAgentEvent::_EventSeverity severity) {
    for (const char* name : {"fatal", "error", "warning", "notice", "info", "debug"}) {
        if (CAgentEvent::SeverityFromName(name) == severity) {
            return name;
        }
    }
    return {};
}

Json AsTold(const StoredAgentEvent& stored) {
    const CAgentEvent& event = stored.event;
    return Json{{"id", stored.id},
                {"code", event.GetEventCode()},
                {"severity", SeverityName(event.GetSeverity())},
                {"time", event.GetJTime()},
                {"data", ZelkaCore::ToUtf8(event.GetData())}};
}

}  // namespace

Json EventsOnDisk(const std::string& workdir, const std::optional<std::int64_t>& after) {
    const std::string file = workdir + "/plugins/zelka_core/zelk_agent.db";
    ScopedFd database;
    if (const auto error = OpenRegularFile(file, database)) {
        throw CommandError(file + ": " + error.message(), error == std::errc::permission_denied
                                                              ? ExitCode::kFailed
                                                              : ExitCode::kNoAgent);
    }
    // SQLite's locks would go with this descriptor.
    database.Reset();
    std::vector<StoredAgentEvent> found;
    ZelkaCore::AgentDatabase events(file, ZelkaCore::SqliteTuning());
    if (!events.Events(after.value_or(0), ZelkaCore::AgentDatabase::kNoLimit, found)) {
        throw CommandError(file + ": the events cannot be read");
    }
    const std::size_t first = after || found.size() <= kLast ? 0 : found.size() - kLast;
    Json told = Json::array();
    for (std::size_t i = first; i < found.size(); ++i) {
        told.push_back(AsTold(found[i]));
    }
    return Json{{"events", std::move(told)}};
}
