#include <wx/filename.h>

#include "apps/start/registry_file.h"
#include "apps/start/relay_conflict.h"
#include "apps/start/waiting_packages.h"
#include "apps/zelkctl/check/checks.h"
#include "apps/zelkctl/check/database_look.h"
#include "zelka_core/archive/plugin_type.h"
#include "zelka_core/archive/unzip.h"
#include "zelka_core/text.h"

using ZelkaCore::ToUtf8;

namespace {

class WaitingPackages {
  public:
    WaitingPackages(const Start& start, Findings& findings)
        : m_start(start),
          m_findings(findings),
          m_bin(wxFileName(start.dom->GetWxString("app.path.bin"), wxString())
                    .GetPath(wxPATH_GET_VOLUME)) {}

    void Check() {
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
        const ZelkaCore::UnzipOptions options{.removes = removes,
                                              .reserved = OwnPlaces(*m_start.dom, m_bin)};
        std::string fault;
        if (!CheckUnzip(package, wxFileName(m_bin, wxString()), options, fault)) {
            m_findings.Error(ToUtf8(path), fault);
        }
    }

    const Start& m_start;
    Findings& m_findings;
    const wxString m_bin;
    wxSortedArrayString m_packages;  // that are not thrown away
};

}  // namespace

void CheckPackages(const Start& start, Findings& findings) {
    if (start.installsPackages) {
        WaitingPackages(start, findings).Check();
    }
}
