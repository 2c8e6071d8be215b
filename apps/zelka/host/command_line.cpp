// The command line: its options, and what they say of identity, run mode and Lua search paths.

#include <wx/cmdline.h>
#include <wx/filename.h>
#include <wx/log.h>
#include <wx/tokenzr.h>

#include "apps/zelka/host/brand.h"
#include "apps/zelka/host/path_templates.h"
#include "apps/zelka/zelka.h"
#include "zelka_core/store/dom.h"

namespace {

void AddTextOption(wxCmdLineParser& parser, const char* shortName, const char* longName,
                   const char* help) {
    parser.AddOption(shortName, longName, help, wxCMD_LINE_VAL_STRING);
}

}  // namespace

void CAgentApp::OnInitCmdLine(wxCmdLineParser& parser) {
    wxAppBase::OnInitCmdLine(parser);
    AddTextOption(parser, "a", "appname",
                  "the name of this application (default is based on the name of the executable "
                  "file).");
    parser.AddSwitch("b", "background", "run as a Windows service or Unix daemon process.");
    AddTextOption(parser, "c", "lua_cpath",
                  "add the supplied value at the front of the search path for Lua C libraries.");
    AddTextOption(parser, "d", "domain_var", "sets domain variable; name=value format.");
    AddTextOption(parser, "e", "extdir",
                  "extension folder. All *.zke files from this folder are added to the Lua search "
                  "path.");
    parser.AddSwitch("i", "install_plugins",
                     "install all *.zkp files found in the same folder as the executable.");
    AddTextOption(parser, "l", "lua_path",
                  "add the supplied value at the front of the search path for Lua libraries.");
    AddTextOption(parser, "p", "plugins", "comma delimited list of plugins to enable.");
    AddTextOption(parser, "t", "trace",
                  "enable tracing for the specified set of module names, separated by commas.");
    AddTextOption(parser, "w", "workdir",
                  "working directory where this instance's data files are stored. Registry value "
                  "names are also permitted.");
    AddTextOption(parser, "u", "unittest",
                  "runs the Lua script (possibly wildcarded) under LuaUnit.");
    parser.AddSwitch("U", "test", "");
    AddTextOption(parser, "z", "zippath",
                  "list of ZIP archives of Lua code (possibly wildcarded), separated by "
                  "semi-colons.");
    // Accepted here and read from the raw arguments when the Lua table `arg` is built.
    parser.AddParam("-- script-param [script-param ...]", wxCMD_LINE_VAL_STRING,
                    wxCMD_LINE_PARAM_OPTIONAL | wxCMD_LINE_PARAM_MULTIPLE);
}

bool CAgentApp::OnCmdLineParsed(wxCmdLineParser& parser) {
    // The name is the one that the program was called by; where it lies does not depend on whether
    // a link led to it.
    const wxFileName executable(m_pDom->GetWxString("app.path.bin"),
                                wxFileName(argv[0]).GetFullName());
    SettleIdentity(parser, executable);
    TakeRunMode(parser);
    if (!TakeLuaPaths(parser)) {
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

void CAgentApp::SettleIdentity(const wxCmdLineParser& parser, const wxFileName& executable) {
    wxString name = GetAppName();
    (void)parser.Found("appname", &name);
    const Identity identity = ApplyBrandRule(name, executable.GetName());
    SetAppName(identity.name);
    SetAppDisplayName(identity.displayName);
    (void)m_pDom->SetWx("app.name.effective", identity.effectiveName);
    (void)m_pDom->SetWx("app.name.effective.short", identity.effectiveShort);
    (void)m_pDom->SetWx("app.name", GetAppName());
    (void)m_pDom->SetWx("app.log.name", GetAppDisplayName());
    m_bDefaultAppName = GetAppName() == "zelk_agent";
}

void CAgentApp::TakeRunMode(const wxCmdLineParser& parser) {
    if (parser.Found("background")) {
        (void)m_pDom->Set("app.background", true);
        m_bBackground = true;
    }
    m_bInstallPlugins = parser.Found("install_plugins");
    (void)parser.Found("extdir", &m_strExtDir);
}

bool CAgentApp::TakeLuaPaths(const wxCmdLineParser& parser) {
    wxString plugins;
    if (parser.Found("plugins", &plugins)) {
        (void)m_pDom->SetWx("app.plugins", plugins);
    }
    wxString value;
    if (parser.Found("lua_cpath", &value)) {
        (void)m_pDom->SetWx("app.lua.cpath", ExpandPathTemplates(value, plugins));
    }
    if (parser.Found("lua_path", &value)) {
        (void)m_pDom->SetWx("app.lua.path", ExpandPathTemplates(value, plugins));
    }
    (void)parser.Found("zippath", &m_strZipPath);
    if (!m_strZipPath.empty() && !IsZipPathUnderBin(m_strZipPath)) {
        return false;
    }
    m_strZipPath = ExpandPathTemplates(m_strZipPath, plugins);
    return true;
}

// A plain test of prefixes: wildcards and placeholders in the list are not interpreted.
bool CAgentApp::IsZipPathUnderBin(const wxString& list) const {
    const wxString bin = m_pDom->GetWxString("app.path.bin");
    wxStringTokenizer entries(list, ";");
    while (entries.HasMoreTokens()) {
        wxFileName entry(entries.GetNextToken());
        (void)entry.MakeAbsolute();
        if (!entry.GetFullPath().StartsWith(bin)) {
            return false;
        }
    }
    return true;
}
