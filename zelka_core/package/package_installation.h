#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "zelka_core/archive/unzip.h"
#include "zelka_core/package/package_judgement.h"
#include "zelka_core/package/package_settlement.h"

namespace ZelkaCore {

// One installation of a package, looked on at by way of Unzip. A package without a manifest is
// installed as if nobody looked. One with a manifest owns its files; it is refused before anything
// is written if its manifest makes no sense, or JudgePackage says so. While it is being written,
// and as long as a newer version than before is on trial, what was there can be taken back.
class PackageInstallation : public UnzipObserver {
  public:
    // `settlement` and `host` outlive the object. `archive` is the name of the package's file.
    PackageInstallation(PackageSettlement& settlement, const PackageHost& host, std::string archive,
                        std::string signer);

    bool OnJudged(ZipArchive& archive, const std::vector<std::string>& places,
                  std::string& fault) override;
    bool OnBegin(std::string& fault) override;
    [[nodiscard]] bool WantsChecksums() const override { return m_manifest.has_value(); }
    void OnFile(const std::string& place, const std::string& sha256, unsigned mode) override;

    // To be called when Unzip has returned, with its result. True if the package is installed, and
    // on record where it has a manifest; otherwise a package with a manifest has left things as
    // they were. What there is to tell is added to `notes`.
    bool Finish(bool isUnpacked, std::vector<std::string>& notes);

  private:
    bool LookAtOlderFiles(std::string& fault);
    bool Keep(std::string& fault);
    bool Complete(std::vector<std::string>& notes);
    [[nodiscard]] std::optional<PackageTrial> TrialOf() const;

    PackageSettlement& m_settlement;
    const PackageHost& m_host;
    const std::string m_archive;
    const std::string m_signer;

    std::optional<PackageManifest> m_manifest;  // none: there is none
    std::optional<InstalledPackage> m_older;    // this package, as it was
    std::map<std::string, OwnedFile> m_olderFiles;
    std::vector<std::string> m_places;  // of the files to be written
    std::vector<OwnedFile> m_written;
    bool m_hasBegun = false;
};

// Looks on while a package takes files away, for what its manifest says, if it has one.
class PackageRemoval : public UnzipObserver {
  public:
    bool OnJudged(ZipArchive& archive, const std::vector<std::string>& places,
                  std::string& fault) override;
    bool OnBegin(std::string&) override { return true; }
    [[nodiscard]] bool WantsChecksums() const override { return false; }
    void OnFile(const std::string&, const std::string&, unsigned) override {}

    // The package that it removes; empty if it only names files.
    [[nodiscard]] std::string Name() const { return m_manifest ? m_manifest->name : ""; }

  private:
    std::optional<PackageManifest> m_manifest;
};

}  // namespace ZelkaCore
