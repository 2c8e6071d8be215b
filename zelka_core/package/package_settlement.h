#pragma once

#include <string>
#include <vector>

#include "zelka_core/package/kept_files.h"
#include "zelka_core/package/package_records.h"

namespace ZelkaCore {

// Who has this lock in the program's folder changes packages there; nobody else does.
inline constexpr const char* kPackagesLock = ".zelka-packages.lock";

// So many starts in a row may end badly while a package is on trial.
inline constexpr int kMostFailures = 3;

// Brings to an end what other starts have left: what was begun with a package and not finished, and
// trials that have failed, are taken back. Every step can be repeated after a kill or a power cut.
// For whoever has the lock. What there is to tell, for an operator to read, is added to `notes`.
class PackageSettlement {
  public:
    // `database` outlives the object.
    explicit PackageSettlement(AgentDatabase& database)
        : m_database(database), m_records(database) {}

    // The program's folder. False if it cannot be opened.
    bool Open(const std::string& folder, std::vector<std::string>& notes);

    // Takes back every unfinished change. False if one stays unfinished.
    bool SettleChanges(std::vector<std::string>& notes);

    // Counts a start for each package on trial, unless `start`, a name for it, was counted before,
    // and takes back the packages whose starts have failed too often. False if one could not be.
    bool SettleTrials(const std::string& start, std::vector<std::string>& notes);

    // Takes back the unfinished change, or the version on trial, of one package. True if there is
    // none any more.
    bool TakeBackChange(const std::string& package, std::vector<std::string>& notes);
    bool TakeBackTrial(const std::string& package, std::vector<std::string>& notes);

    // What is kept for the package goes, after it is on record that nobody will put it back: if
    // this is interrupted, the next SettleTrials does it.
    void DropKept(const std::string& package);

    // The version on trial stays, and what is kept for the one before it goes.
    bool Pass(const std::string& package);

    // Files were deleted, and with them what is known of a package; an empty name is none.
    bool Forget(const std::vector<std::string>& paths, const std::string& package);

    [[nodiscard]] PackageRecords& Records() { return m_records; }
    [[nodiscard]] KeptFiles& Kept() { return m_kept; }

  private:
    bool PutBack(const std::string& package, const std::map<std::string, std::string>& written,
                 std::vector<std::string>& notes);
    bool PutBackTrial(const std::string& package, std::vector<std::string>& notes);
    bool ForgetTrial(const std::string& package);
    bool DropLeftovers();
    void WriteEvent(const std::string& archive);
    bool GiveUp(const std::string& package, const PackageTrial& trial,
                std::vector<std::string>& notes);
    void MarkAsFailed(const InstalledPackage& package, std::vector<std::string>& notes);

    AgentDatabase& m_database;
    PackageRecords m_records;
    KeptFiles m_kept;
    std::string m_folder;
};

}  // namespace ZelkaCore
