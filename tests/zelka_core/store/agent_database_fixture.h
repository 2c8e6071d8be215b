#pragma once

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/support/captured_log.h"
#include "tests/support/scratch_folder.h"
#include "zelka_core/store/agent_database.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

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

// The value of the setting "name"; "none" if there is none, or it cannot be read.
inline std::string Setting(AgentDatabase& database, const std::string& name = "name") {
    std::string value = "none";
    EXPECT_TRUE(database.SettingRetrieve(name, value) || value == "none");
    return value;
}

// A database that does not exist yet, in a folder that does not exist yet.
class AgentDatabaseTest : public testing::Test {
  protected:
    [[nodiscard]] AgentDatabase Open(const SqliteTuning& tuning = {}) const {
        return {m_file, tuning};
    }

    // Puts bytes in the place of the database, or of its log if that is the suffix.
    void Overwrite(const std::string& content, const std::string& suffix = "") const {
        (void)m_scratch.Write("plugins/zelka_core/zelk_agent.db" + suffix, content);
    }

    // The databases that were put aside, without their -wal and -shm files.
    [[nodiscard]] std::vector<std::string> PutAside() const {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(m_file.parent_path())) {
            const std::string path = entry.path().string();
            if (path.starts_with(m_file.string() + ".damaged-") && !path.ends_with("-wal") &&
                !path.ends_with("-shm")) {
                found.push_back(path);
            }
        }
        return found;
    }

    const ScratchFolder m_scratch;
    const fs::path m_file = m_scratch.Path() / "plugins/zelka_core/zelk_agent.db";
    // Errors and warnings; nothing else is logged here.
    const CapturedLog m_log;
};

}  // namespace ZelkaCore
