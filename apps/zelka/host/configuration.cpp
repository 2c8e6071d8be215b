// The instance's log and configuration: ini files, read at the start and anew when a service is
// told to, and the options that go with them.

#include <wx/cmdline.h>
#include <wx/filename.h>
#include <wx/log.h>

#include <cstdio>

#include "apps/zelka/zelka.h"
#include "zelka_core/log/log_file.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/store/ini_files.h"
#include "zelka_core/store/sqlite_database.h"
#include "zelka_core/text.h"

using ZelkaCore::ToUtf8;

namespace {

constexpr const char* kDefaultTrace =
    "Appl,Cmd,Srvc,zelka.Heartbeat,zelka.ListenThread,zelka.PluginUtils";

void PrintToStandardError(const wxString& text) {
    (void)std::fputs(ToUtf8(text).c_str(), stderr);
}

ZelkaCore::IniPaths IniFilesOf(const ZelkaCore::CDom& dom) {
    return {dom.GetWxString("app.path.ini"), dom.GetWxString("app.path.ini.global")};
}

bool HasWildcard(const wxString& path) {
    return path.find_first_of("*?") != wxString::npos;
}

}  // namespace

void CAgentApp::TakeRemainingOptions(const wxCmdLineParser& parser) {
    wxString value;
    if (parser.Found("trace", &value)) {
        value.Replace("'", "");
        value.Replace("\"", "");
        (void)m_pDom->SetWx("app.trace", value);
    }
    TakeDomainVariables(parser);
    if (parser.Found("unittest", &value)) {
        if (!HasWildcard(value) && !wxFileName::IsFileReadable(value)) {
            PrintToStandardError(wxString::Format("%s: not found", value));
        } else {
            m_strUnitTest = value;
            (void)m_pDom->Set("app.mode.unittest", true);
        }
    }
    if (parser.Found("test")) {
        (void)m_pDom->Set("app.mode.unittest", true);
    }
}

// The option may be given several times; the parser's own answer is the last value alone.
void CAgentApp::TakeDomainVariables(const wxCmdLineParser& parser) {
    for (const wxCmdLineArg& argument : parser.GetArguments()) {
        if (argument.GetKind() != wxCMD_LINE_OPTION || argument.GetShortName() != "d") {
            continue;
        }
        const wxString& value = argument.GetStrVal();
        const std::size_t equals = value.find('=');
        if (equals == wxString::npos || equals == 0) {
            PrintToStandardError(wxString::Format(
                "Ignoring invalid domain variable specification '%s': expected name=value format\n",
                value));
        } else {
            (void)m_pDom->Set(ToUtf8(value.substr(0, equals)), ToUtf8(value.substr(equals + 1)));
        }
    }
}

void CAgentApp::OpenLog() {
    const wxString work = m_pDom->GetWxString("app.path.work");
    if (work.empty()) {
        wxLogWarning("The variable app.path.work is empty: the log goes to standard error");
        ZelkaCore::CloseLogFile();
        return;
    }
    (void)ZelkaCore::OpenLogFile(work + "/log", m_pDom->GetWxString("app.log.name"));
}

void CAgentApp::OpenConfiguration() {
    wxFileConfig* config = ZelkaCore::OpenIniFiles(IniFilesOf(*m_pDom)).release();
    wxConfigBase::Set(config);

    wxString fipsMode;
    if (config->Read("FIPSMode", &fipsMode)) {
        (void)m_pDom->SetWx("app.fipsmode", fipsMode);
    }
    ApplyTraceList(TraceListOf(*config));
    long stallLimit = 0;
    if (!m_pDom->Find("app.lua.stallLimit") && config->Read("StallLimit", &stallLimit)) {
        (void)m_pDom->Set("app.lua.stallLimit", std::int64_t{stallLimit});
    }
    long trial = 0;
    if (!m_pDom->Find("app.packages.trial") && config->Read("PackageTrial", &trial)) {
        (void)m_pDom->Set("app.packages.trial", std::int64_t{trial});
    }
    (void)m_pDom->Set("app.fulldump", config->ReadLong("DumpLevel", 0) != 0);

    wxString name;
    long cookie = 0;
    for (bool more = config->GetFirstEntry(name, cookie); more;
         more = config->GetNextEntry(name, cookie)) {
        long number = 0;
        if (name.StartsWith("sqlite.config") && config->Read(name, &number)) {
            (void)m_pDom->SetWx(name, std::int64_t{number});
        }
    }
    ZelkaCore::CSqliteDatabase::InitializeSQLite(*m_pDom);
}

wxString CAgentApp::TraceListOf(const wxConfigBase& config) const {
    return m_bDefaultAppName ? config.Read("Trace", kDefaultTrace)
                             : config.Read(GetAppName() + ".Trace", wxEmptyString);
}

// Modules that something else has added as well stay.
void CAgentApp::ApplyTraceList(const wxString& modules) {
    const ZelkaCore::MutexLock lock(m_iniMutex);
    ZelkaCore::RemoveTraceModules(m_strIniTrace);
    m_strIniTrace = modules;
    (void)m_pDom->SetWx("app.trace+", modules);
}

void CAgentApp::ReloadConfiguration(const Control&) {
    wxString problem;
    (void)Reload(problem);
}

// On any thread. The framework's own configuration object is the main thread's and stays as it is.
bool CAgentApp::Reload(wxString& problem) {
    const ZelkaCore::IniPaths paths = IniFilesOf(*m_pDom);
    if (!ZelkaCore::CheckIniFiles(paths, problem)) {
        wxLogError("The configuration stays as it is: %s", problem);
        return false;
    }
    ApplyTraceList(TraceListOf(*ZelkaCore::OpenIniFiles(paths)));
    wxLogVerbose("The configuration was read anew");
    (void)m_pDom->ConditionRaise("app.configChanged");
    return true;
}
