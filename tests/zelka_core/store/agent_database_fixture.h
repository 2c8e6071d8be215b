#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/captured_log.h"
#include "tests/support/scratch_folder.h"
#include "zelka_core/store/agent_database.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

inline CAgentEvent EventWithData(const std::string& data) {
    CAgentEvent event;
    event.SetData(FromUtf8(data));
    return event;
}

// Data of all events, in order of id.
inline std::vector<std::string> EventData(AgentDatabase& database) {
    std::vector<StoredAgentEvent> events;
    EXPECT_TRUE(database.Events(0, AgentDatabase::kNoLimit, events));
    std::vector<std::string> data;
    data.reserve(events.size());
    for (const StoredAgentEvent& stored : events) {
        data.push_back(ToUtf8(stored.event.GetData()));
    }
    return data;
}

// A database that does not exist yet, in a folder that does not exist yet.
class AgentDatabaseTest : public testing::Test {
  protected:
    [[nodiscard]] AgentDatabase Open(const SqliteTuning& tuning = {}) const {
        return {m_file, tuning};
    }

    // The databases that were put aside, without their -wal and -shm files.
    [[nodiscard]] std::vector<std::filesystem::path> PutAside() const {
        std::vector<std::filesystem::path> found;
        for (const auto& entry : std::filesystem::directory_iterator(m_file.parent_path())) {
            const std::string name = entry.path().filename().string();
            if (name.starts_with("zelk_agent.db.damaged-") && !name.ends_with("-wal") &&
                !name.ends_with("-shm")) {
                found.push_back(entry.path());
            }
        }
        return found;
    }

    const ScratchFolder m_scratch;
    const std::filesystem::path m_file =
        m_scratch.Path() / "plugins" / "zelka_core" / "zelk_agent.db";
    // Errors and warnings; nothing else is logged here.
    const CapturedLog m_log;
};

}  // namespace ZelkaCore
