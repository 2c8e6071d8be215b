#include "apps/zelkctl/events_on_disk.h"

#include <array>
#include <filesystem>
#include <vector>

#include "apps/zelkctl/packages_on_disk.h"
#include "apps/zelkctl/zelkctl.h"
#include "platform/file.h"
#include "zelka_core/store/agent_database.h"
#include "zelka_core/text.h"

namespace {

using ZelkaCore::CAgentEvent;
using ZelkaCore::Json;
using ZelkaCore::StoredAgentEvent;

constexpr std::int64_t kLast = 20;  // events, if nothing says which

Json AsTold(const StoredAgentEvent& stored) {
    const CAgentEvent& event = stored.event;
    return Json{{"id", stored.id},
                {"code", event.GetEventCode()},
                {"severity", CAgentEvent::NameOf(event.GetSeverity())},
                {"time", event.GetJTime()},
                {"data", ZelkaCore::ToUtf8(event.GetData())}};
}

}  // namespace

Json EventsOnDisk(const std::string& workdir, const std::optional<std::int64_t>& after) {
    const std::string file = DatabaseFileOf(workdir);
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
    const bool isRead = after ? events.Events(*after, ZelkaCore::AgentDatabase::kNoLimit, found)
                              : events.LastEvents(kLast, found);
    if (!isRead) {
        throw CommandError(file + ": the events cannot be read");
    }
    Json told = Json::array();
    for (const StoredAgentEvent& event : found) {
        told.push_back(AsTold(event));
    }
    return Json{{"events", std::move(told)}};
}
