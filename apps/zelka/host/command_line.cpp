// The command line: what its options say of identity and run mode, and the order in which they are
// taken.

#include "apps/start/command_line.h"
#include "apps/start/configuration.h"

#include <wx/cmdline.h>
#include <wx/filename.h>
#include <wx/log.h>

#include "apps/zelka/zelka.h"
#include "zelka_core/store/dom.h"

void CAgentApp::OnInitCmdLine(wxCmdLineParser& parser) {
    wxAppBase::OnInitCmdLine(parser);
    AddStartOptions(parser);
}

bool CAgentApp::OnCmdLineParsed(wxCmdLineParser& parser) {
    // The name is the one that the program was called by; where it lies does not depend on whether
    // a link led to it.
    const wxFileName executable(m_pDom->GetWxString("app.path.bin"),
                                wxFileName(argv[0]).GetFullName());
    TakeIdentity(parser, executable);
    TakeRunMode(parser);
    if (!TakeLuaPaths(parser, *m_pDom, m_strZipPath)) {
        wxLogError("Invalid parameter detected.");
        return false;
    }
    if (!SettleWorkdir(parser, executable)) {
        return false;
    }
    TakeRemainingOptions(parser);
    OpenLog();
    OpenConfiguration();
    return wxAppBase::OnCmdLineParsed(parser);
}

void CAgentApp::TakeIdentity(const wxCmdLineParser& parser, const wxFileName& executable) {
    const Identity identity = SettleIdentity(parser, GetAppName(), executable, *m_pDom);
    SetAppName(identity.name);
    SetAppDisplayName(identity.displayName);
    (void)m_pDom->SetWx("app.name", GetAppName());
    (void)m_pDom->SetWx("app.log.name", GetAppDisplayName());
    m_bDefaultAppName = GetAppName() == kDefaultApplication;
}

void CAgentApp::TakeRunMode(const wxCmdLineParser& parser) {
    if (parser.Found("background")) {
        (void)m_pDom->Set("app.background", true);
        m_bBackground = true;
    }
    m_bInstallPlugins = parser.Found("install_plugins");
    (void)parser.Found("extdir", &m_strExtDir);
}
