#pragma once

#include <optional>
#include <string>
#include <vector>

#include "apps/zelkctl/agent.h"
#include "apps/zelkctl/archive_writer.h"

// What is known of an agent, part by part, in an archive. A part that is not to be had is named,
// with the reason; what fails otherwise is a CommandError. The values of secrets are masked but in
// crash dumps.
class Diagnosis {
  public:
    Diagnosis(const std::string& workdir, const std::string& archive);

    // What the agent tells, as long as it answers. First of all.
    void AddAgent();
    // What lies on the disk.
    void AddLogs();
    void AddIniFiles();
    void AddDumps();
    // What the system knows of the agent's unit, and of itself.
    void AddUnit();
    void AddSystem();

    // Writes the archive.
    void Finish();

    // "PART: REASON" of each that is missing.
    [[nodiscard]] const std::vector<std::string>& Missing() const { return m_missing; }

  private:
    // Adds the text that the work gives, or misses the part.
    template <class Work>
    void AddPart(const std::string& part, Work work);
    void Miss(const std::string& part, const std::string& reason);

    [[nodiscard]] ZelkaCore::Json Ask(const char* method, const ZelkaCore::Json& parameters);
    [[nodiscard]] ZelkaCore::Json AskForEvents();
    [[nodiscard]] std::vector<std::string> IniFiles() const;

    std::string m_workdir;
    ArchiveWriter m_archive;
    std::vector<std::string> m_missing;
    std::optional<Agent> m_agent;
    std::string m_lost;     // why the agent cannot be asked any more; empty: it can
    std::string m_process;  // the agent's number, if it has told it
};
