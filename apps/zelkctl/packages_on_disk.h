#pragma once

#include <map>
#include <string>
#include <vector>

#include "apps/zelkctl/told_log.h"
#include "zelka_core/package/package_records.h"

// The database in the working folder of an agent.
std::string DatabaseFileOf(const std::string& workdir);

// What an agent's database knows of packages with a manifest, be the agent running or not. Where
// there is no database yet there are no packages. What fails is a CommandError.
class PackagesOnDisk {
  public:
    explicit PackagesOnDisk(const std::string& workdir);

    // All of them, sorted by name.
    std::vector<ZelkaCore::InstalledPackage> List();

    // The package of that name; a CommandError if it is not installed.
    ZelkaCore::InstalledPackage Find(const std::string& name);

    // As PackageRecords has them.
    std::vector<ZelkaCore::OwnedFile> Files(const std::string& package);
    std::vector<ZelkaCore::KeptFile> Kept(const std::string& package);
    std::map<std::string, std::string> Owners();
    std::map<std::string, ZelkaCore::PackageTrial> Trials();

    // Tells on standard error of installations that were interrupted, and what becomes of them.
    void TellUnfinished();

  private:
    ToldLog m_log;
    ZelkaCore::AgentDatabase m_database;
    ZelkaCore::PackageRecords m_records;
};
