// The maintenance of a start, before any Lua code runs.

#include <wx/filename.h>

#include "apps/zelka/companions/locked_files.h"
#include "apps/zelka/plugins/package_round.h"
#include "apps/zelka/zelka.h"
#include "platform/service.h"
#include "zelka_core/archive/unzip.h"
#include "zelka_core/store/dom.h"

void CAgentApp::MaintainPlugins() {
    const wxString bin = m_pDom->GetWxString("app.path.bin");
    DeleteFilesMovedAside(bin);
    if (!m_bInstallPlugins) {
        return;
    }
    PackageRound round(*m_pDom);
    m_pRound = &round;
    if (round.IsAlone()) {
        // What a process that was killed in the middle of an installation has left.
        (void)ZelkaCore::RemoveTemporaryFiles(wxFileName(bin, wxString()));
    }
    round.Settle();
    UninstallOldPlugins();
    InstallNewPlugins();
    m_pRound = nullptr;
    m_packageTrials.Begin(round.HasTrials());
    ReportServiceProgress("");
}
