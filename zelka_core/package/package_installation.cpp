#include "zelka_core/package/package_installation.h"

#include <algorithm>
#include <compare>
#include <set>
#include <utility>

#include "zelka_core/archive/shown_name.h"
#include "zelka_core/archive/zip_archive.h"
#include "zelka_core/package/package_archive.h"
#include "zelka_core/package/version_order.h"
#include "zelka_core/system/clocks.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

std::string Shown(const std::string& text) {
    return "'" + ToUtf8(ShownName(FromUtf8(text))) + "'";
}

}  // namespace

PackageInstallation::PackageInstallation(PackageSettlement& settlement, const PackageHost& host,
                                         std::string archive, std::string signer)
    : m_settlement(settlement),
      m_host(host),
      m_archive(std::move(archive)),
      m_signer(std::move(signer)) {
}

bool PackageInstallation::OnJudged(ZipArchive& archive, const std::vector<std::string>& places,
                                   std::string& fault) {
    if (!ReadManifest(archive, places, m_manifest, fault)) {
        return false;
    }
    if (!m_manifest) {
        return true;
    }
    m_places = FilesOf(archive, places);
    PackageRecords& records = m_settlement.Records();
    InstalledPackages installed;
    if (!records.List(installed.packages) || !records.Owners(installed.owners)) {
        fault = "it cannot be told which packages are installed";
        return false;
    }
    if (!JudgePackage(*m_manifest, m_places, installed, m_host, fault)) {
        return false;
    }
    if (const InstalledPackage* older = installed.Find(m_manifest->name)) {
        m_older = *older;
    }
    return LookAtOlderFiles(fault);
}

bool PackageInstallation::LookAtOlderFiles(std::string& fault) {
    std::vector<OwnedFile> files;
    if (!m_settlement.Records().Files(m_manifest->name, files)) {
        fault = "it cannot be told which files are its own";
        return false;
    }
    m_olderFiles.clear();
    for (OwnedFile& file : files) {
        std::string path = file.path;
        m_olderFiles.emplace(std::move(path), std::move(file));
    }
    return true;
}

// A version that never passed its trial is not what an upgrade goes back to.
bool PackageInstallation::OnBegin(std::string& fault) {
    if (!m_manifest) {
        return true;
    }
    PackageRecords& records = m_settlement.Records();
    std::map<std::string, std::string> unfinished;
    std::map<std::string, PackageTrial> trials;
    if (!records.Unfinished(unfinished) || !records.Trials(trials)) {
        fault = "it cannot be told what is on trial";
        return false;
    }
    if (unfinished.contains(m_manifest->name)) {
        fault = "what an interrupted installation has changed is not put back yet";
        return false;
    }
    if (const auto trial = trials.find(m_manifest->name); trial != trials.end()) {
        std::vector<std::string> notes;
        if (!m_settlement.TakeBackTrial(m_manifest->name, notes)) {
            fault = "the version on trial cannot be taken back";
            return false;
        }
        m_older = trial->second.older;
        if (!LookAtOlderFiles(fault)) {
            return false;
        }
    }
    return Keep(fault);
}

bool PackageInstallation::Keep(std::string& fault) {
    std::set<std::string> paths(m_places.begin(), m_places.end());
    for (const auto& [path, file] : m_olderFiles) {
        paths.insert(path);
    }
    std::vector<KeptFile> kept;
    std::string path;
    const std::string& name = m_manifest->name;
    if (const auto error = m_settlement.Kept().Keep(
            name, std::vector<std::string>(paths.begin(), paths.end()), m_olderFiles, kept, path)) {
        fault = Shown(path) + " cannot be kept: " + error.message();
        m_settlement.Kept().Drop(name);
        return false;
    }
    m_hasBegun = m_settlement.Records().Begin(name, m_archive, m_places, kept);
    if (!m_hasBegun) {
        fault = "it cannot be recorded what is about to be done";
        m_settlement.Kept().Drop(name);
    }
    return m_hasBegun;
}

bool PackageRemoval::OnJudged(ZipArchive& archive, const std::vector<std::string>& places,
                              std::string& fault) {
    return ReadManifest(archive, places, m_manifest, fault);
}

void PackageInstallation::OnFile(const std::string& place, const std::string& sha256,
                                 unsigned mode) {
    m_written.push_back({place, sha256, mode});
}

bool PackageInstallation::Finish(bool isUnpacked, std::vector<std::string>& notes) {
    if (!m_manifest) {
        return isUnpacked;
    }
    std::string fault;
    // Nobody has begun where there was no file to write.
    const bool hasBegun = m_hasBegun || (isUnpacked && OnBegin(fault));
    if (isUnpacked && hasBegun && Complete(notes)) {
        return true;
    }
    if (!fault.empty()) {
        notes.push_back(Shown(m_archive) + " " + fault);
    }
    if (m_hasBegun && !m_settlement.TakeBackChange(m_manifest->name, notes)) {
        notes.push_back("what " + m_manifest->name + " has changed is put back at the next start");
    }
    return false;
}

std::optional<PackageTrial> PackageInstallation::TrialOf() const {
    if (!m_older || std::is_eq(CompareVersions(m_manifest->version, m_older->version))) {
        return std::nullopt;
    }
    const auto isProgram = [&](const std::string& place) {
        return std::any_of(m_host.program.begin(), m_host.program.end(), [&](const auto& part) {
            return place == part || (part.ends_with('/') && place.starts_with(part));
        });
    };
    // What the older version alone has goes.
    const bool needsStart = std::any_of(m_places.begin(), m_places.end(), isProgram) ||
                            std::any_of(m_olderFiles.begin(), m_olderFiles.end(),
                                        [&](const auto& file) { return isProgram(file.first); });
    return PackageTrial{.older = *m_older,
                        .failures = needsStart ? 0 : 1,
                        .start = m_host.start,
                        .needsStart = needsStart};
}

bool PackageInstallation::Complete(std::vector<std::string>& notes) {
    std::vector<std::string> gone;
    for (const auto& [path, file] : m_olderFiles) {
        if (!std::binary_search(m_places.begin(), m_places.end(), path)) {
            gone.push_back(path);
        }
    }
    std::vector<std::string> left;
    if (m_settlement.Kept().Delete(gone, left) || !left.empty()) {
        for (const std::string& file : left) {
            notes.push_back("cannot be deleted: " + Shown(file));
        }
        return false;
    }
    const InstalledPackage package{.name = m_manifest->name,
                                   .version = m_manifest->version,
                                   .requirements = RequirementsText(m_manifest->requirements),
                                   .archive = m_archive,
                                   .signer = m_signer,
                                   .installed = TimeNowMillis()};
    const auto trial = TrialOf();
    if (!m_settlement.Records().Finish(package, m_written, trial)) {
        return false;
    }
    if (!trial) {
        m_settlement.DropKept(package.name);
    }
    return true;
}

}  // namespace ZelkaCore
