#include <wx/filename.h>

#include <optional>

#include "apps/start/registry_file.h"
#include "apps/start/relay_conflict.h"
#include "apps/start/waiting_packages.h"
#include "apps/zelka/version.h"
#include "apps/zelkctl/check/checks.h"
#include "apps/zelkctl/check/database_look.h"
#include "zelka_core/archive/plugin_type.h"
#include "zelka_core/archive/unzip.h"
#include "zelka_core/package/package_archive.h"
#include "zelka_core/package/package_judgement.h"
#include "zelka_core/package/signed_package.h"
#include "zelka_core/text.h"

using ZelkaCore::ToUtf8;

namespace {

// Judges a package by what is installed, and what those before it bring and take away.
class Judgement : public ZelkaCore::UnzipObserver {
  public:
    Judgement(ZelkaCore::InstalledPackages& installed, bool removes)
        : m_installed(installed), m_removes(removes) {}

    bool OnJudged(ZelkaCore::ZipArchive& archive, const std::vector<std::string>& places,
                  std::string& fault) override {
        if (!ZelkaCore::ReadManifest(archive, places, m_manifest, fault)) {
            return false;
        }
        m_files = ZelkaCore::FilesOf(archive, places);
        const ZelkaCore::PackageHost host{.name = kRequiredProgram, .version = ZELKA_VERSION};
        return m_removes || !m_manifest ||
               ZelkaCore::JudgePackage(*m_manifest, m_files, m_installed, host, fault);
    }
    bool OnBegin(std::string&) override { return true; }
    [[nodiscard]] bool WantsChecksums() const override { return false; }
    void OnFile(const std::string&, const std::string&, unsigned) override {}

    // What the start finds that has carried it out.
    void CarryOut() {
        auto& [packages, owners] = m_installed;
        if (m_manifest) {
            const std::string& name = m_manifest->name;
            std::erase_if(packages, [&](const auto& package) { return package.name == name; });
            std::erase_if(owners, [&](const auto& owner) { return owner.second == name; });
        }
        for (const std::string& file : m_files) {
            if (m_removes) {
                owners.erase(file);
            } else if (m_manifest) {
                owners.emplace(file, m_manifest->name);
            }
        }
        if (m_manifest && !m_removes) {
            ZelkaCore::InstalledPackage& package = packages.emplace_back();
            package.name = m_manifest->name;
            package.version = m_manifest->version;
        }
    }

  private:
    ZelkaCore::InstalledPackages& m_installed;
    const bool m_removes;
    std::optional<ZelkaCore::PackageManifest> m_manifest;
    std::vector<std::string> m_files;
};

class WaitingPackages {
  public:
    WaitingPackages(const Start& start, Findings& findings)
        : m_start(start),
          m_findings(findings),
          m_bin(wxFileName(start.dom->GetWxString("app.path.bin"), wxString())
                    .GetPath(wxPATH_GET_VOLUME)) {}

    void Check() {
        m_installed = LookAtPackages(m_start.dom->GetPluginFile("zelka_core", "zelk_agent.db"));
        for (const wxString& removal : ListFiles(m_bin, kRemovals)) {
            Judge(removal, true);
        }
        m_packages = ListFiles(m_bin, kPackages);
        if (IsUpgradeFlagged()) {
            if (!m_packages.empty()) {
                m_findings.Warning(RegistryFile(), std::string("has the key ") + kUpgradeFlag +
                                                       ": a start throws all packages away");
            }
            return;
        }
        for (const wxString& core : ListCorePackages(m_bin)) {
            ThrowAway(core, "it is one of the agent's own core");
        }
        CheckRelays();
        for (const wxString& package : wxArrayString(m_packages)) {
            if (IsSkippedInAgentMode(ZelkaCore::GetPluginType(wxFileName(package)))) {
                ThrowAway(package, "its type is not for this machine");
            }
        }
        for (const wxString& package : m_packages) {
            Judge(package, false);
        }
    }

  private:
    void CheckRelays() {
        const RelayPackages relays = FindRelayPackages(m_packages);
        const std::string database = m_start.dom->GetPluginFile("zelka_core", "zelk_agent.db");
        const bool areInConflict = AreInConflict(relays);
        for (const wxString& relay : {relays.relay, relays.edgeRelay}) {
            if (relay.empty()) {
                continue;
            }
            if (areInConflict) {
                ThrowAway(relay, "a relay and an edge relay exclude each other");
            } else if (HasSetting(database, kNewVersionSetting)) {
                ThrowAway(relay, std::string("the setting ") + kNewVersionSetting + " is stored");
            }
        }
    }

    void ThrowAway(const wxString& package, const std::string& reason) {
        m_findings.Error(ToUtf8(package), "is thrown away by a start: " + reason);
        if (const int index = m_packages.Index(package); index != wxNOT_FOUND) {
            m_packages.RemoveAt(static_cast<std::size_t>(index));
        }
    }

    void Judge(const wxString& path, bool removes) {
        const wxFileName package(path);
        if (!package.IsFileReadable()) {
            return m_findings.Error(ToUtf8(path), "is not readable");
        }
        Judgement judgement(m_installed, removes);
        const ZelkaCore::UnzipOptions options{
            .removes = removes, .reserved = OwnPlaces(*m_start.dom, m_bin), .observer = &judgement};
        std::string fault;
        if (!IsAdmitted(ToUtf8(package.GetFullName()), fault) ||
            !CheckUnzip(package, wxFileName(m_bin, wxString()), options, fault)) {
            return m_findings.Error(ToUtf8(path), fault);
        }
        judgement.CarryOut();
    }

    bool IsAdmitted(const std::string& package, std::string& fault) {
        if (!m_trust.AsksForSignatures()) {
            return true;
        }
        FolderTree folder;
        if (const auto error = folder.Open(ToUtf8(m_bin))) {
            fault = "cannot be opened: " + error.message();
            return false;
        }
        return ZelkaCore::CheckSignedPackage(folder, package, m_trust, fault);
    }

    const Start& m_start;
    Findings& m_findings;
    const wxString m_bin;
    const ZelkaCore::TrustFolder m_trust{ZelkaCore::kTrustFolder};
    ZelkaCore::InstalledPackages m_installed;
    wxSortedArrayString m_packages;  // that are not thrown away
};

}  // namespace

void CheckPackages(const Start& start, Findings& findings) {
    if (start.installsPackages) {
        WaitingPackages(start, findings).Check();
    }
}
