#include "zelka_core/package/package_settlement.h"

#include <wx/filename.h>

#include <algorithm>
#include <utility>

#include "zelka_core/archive/plugin_type.h"
#include "zelka_core/archive/shown_name.h"
#include "zelka_core/package/package_archive.h"
#include "zelka_core/package/package_signature.h"
#include "zelka_core/store/agent_event.h"
#include "zelka_core/store/agent_event_codes.h"
#include "zelka_core/store/event_journal.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

std::string ForOperators(const std::string& text) {
    return ToUtf8(ShownName(FromUtf8(text)));
}

}  // namespace

bool PackageSettlement::Open(const std::string& folder, std::vector<std::string>& notes) {
    m_folder = folder;
    const auto error = m_kept.Open(folder);
    if (error) {
        notes.push_back(folder + ": " + error.message());
    }
    return !error;
}

bool PackageSettlement::SettleChanges(std::vector<std::string>& notes) {
    std::map<std::string, std::string> changes;
    bool isSettled = m_records.Unfinished(changes);
    for (const auto& [package, archive] : changes) {
        notes.push_back("The installation of " + ForOperators(archive) +
                        " was interrupted: what it has changed is put back");
        isSettled = TakeBackChange(package, notes) && isSettled;
    }
    return isSettled;
}

bool PackageSettlement::TakeBackChange(const std::string& package,
                                       std::vector<std::string>& notes) {
    std::vector<std::string> paths;
    if (!m_records.ChangedPaths(package, paths)) {
        return false;
    }
    std::map<std::string, std::string> written;
    for (std::string& path : paths) {
        written.emplace(std::move(path), std::string());
    }
    if (!PutBack(package, written, notes) || !m_records.Abandon(package)) {
        return false;
    }
    DropKept(package);
    return true;
}

bool PackageSettlement::SettleTrials(const std::string& start, std::vector<std::string>& notes) {
    std::map<std::string, PackageTrial> trials;
    bool isSettled = m_records.Trials(trials);
    for (const auto& [package, trial] : trials) {
        if (trial.start == start) {
            continue;
        }
        isSettled = (trial.failures < kMostFailures ? m_records.CountStart(package, start)
                                                    : GiveUp(package, trial, notes)) &&
                    isSettled;
    }
    return DropLeftovers() && isSettled;
}

bool PackageSettlement::DropLeftovers() {
    std::vector<std::string> packages;
    const bool isKnown = m_records.Leftovers(packages);
    for (const std::string& package : packages) {
        DropKept(package);
    }
    return isKnown;
}

void PackageSettlement::DropKept(const std::string& package) {
    m_kept.Drop(package);
    (void)m_records.ForgetKept(package);
}

// The event comes before the records: whoever is stopped between the two tells of it again, and
// nothing goes unreported.
bool PackageSettlement::GiveUp(const std::string& package, const PackageTrial& trial,
                               std::vector<std::string>& notes) {
    std::vector<InstalledPackage> packages;
    if (!m_records.List(packages)) {
        return false;
    }
    const auto installed =
        std::find_if(packages.begin(), packages.end(),
                     [&](const InstalledPackage& other) { return other.name == package; });
    if (installed == packages.end()) {
        return m_records.Remove(package);
    }
    notes.push_back(package + " " + installed->version + " has failed " +
                    std::to_string(trial.failures) + " times in a row: " + trial.older.version +
                    " is put back");
    if (!PutBackTrial(package, notes)) {
        return false;
    }
    MarkAsFailed(*installed, notes);
    WriteEvent(installed->archive);
    return ForgetTrial(package);
}

// Under its first name it would be installed again. What has that name may be another version by
// now, which is to be tried.
void PackageSettlement::MarkAsFailed(const InstalledPackage& package,
                                     std::vector<std::string>& notes) {
    std::vector<std::string> names{package.archive + ".done"};
    const auto manifest = ManifestOf(m_folder + "/" + package.archive);
    if (manifest && manifest->name == package.name && manifest->version == package.version) {
        names.push_back(package.archive);
    }
    for (const std::string& name : names) {
        for (const char* part : {"", kSignatureEnding}) {
            if (const auto error = m_kept.Rename(name + part, package.archive + ".failed" + part)) {
                notes.push_back(ForOperators(name + part) + ": " + error.message());
            }
        }
    }
}

bool PackageSettlement::TakeBackTrial(const std::string& package, std::vector<std::string>& notes) {
    return PutBackTrial(package, notes) && ForgetTrial(package);
}

bool PackageSettlement::Pass(const std::string& package) {
    if (!m_records.Pass(package)) {
        return false;
    }
    DropKept(package);
    return true;
}

bool PackageSettlement::Forget(const std::vector<std::string>& paths, const std::string& package) {
    if (!m_records.Forget(paths) || (!package.empty() && !m_records.Remove(package))) {
        return false;
    }
    if (!package.empty()) {
        DropKept(package);
    }
    return true;
}

bool PackageSettlement::PutBackTrial(const std::string& package, std::vector<std::string>& notes) {
    std::vector<OwnedFile> files;
    if (!m_records.Files(package, files)) {
        return false;
    }
    std::map<std::string, std::string> written;
    for (OwnedFile& file : files) {
        written.emplace(std::move(file.path), std::move(file.sha256));
    }
    return PutBack(package, written, notes);
}

bool PackageSettlement::ForgetTrial(const std::string& package) {
    if (!m_records.TakeBack(package)) {
        return false;
    }
    DropKept(package);
    return true;
}

bool PackageSettlement::PutBack(const std::string& package,
                                const std::map<std::string, std::string>& written,
                                std::vector<std::string>& notes) {
    std::vector<KeptFile> kept;
    if (!m_records.Kept(package, kept)) {
        return false;
    }
    std::vector<std::string> left;
    const auto error = m_kept.PutBack(package, kept, written, left);
    for (const std::string& file : left) {
        notes.push_back("left as it is: " + ForOperators(file));
    }
    if (error) {
        notes.push_back(package + " cannot be taken back: " + error.message());
    }
    return !error;
}

void PackageSettlement::WriteEvent(const std::string& archive) {
    const wxFileName package(FromUtf8(m_folder), FromUtf8(archive));
    const CAgentEvent event =
        CAgentEvent::Now(kEventPackageTakenBack, CAgentEvent::SeverityError,
                         ShownName(wxString::Format("%s|%s|%s", GetPluginType(package),
                                                    package.GetName(), package.GetFullPath())));
    std::int64_t id = 0;
    if (m_database.EventWrite(event, &id)) {
        TellJournal(event, id);
    }
}

}  // namespace ZelkaCore
