// The instance's log and configuration: ini files, read at the start and anew when a service is
// told to, and the options that go with them.

#include <wx/cmdline.h>
#include <wx/filename.h>
#include <wx/log.h>

#include <cstdio>

#include "apps/start/command_line.h"
#include "apps/start/configuration.h"
#include "apps/zelka/zelka.h"
#include "zelka_core/log/log_file.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/store/ini_files.h"
#include "zelka_core/store/sqlite_database.h"
#include "zelka_core/text.h"

using ZelkaCore::ToUtf8;

namespace {

void PrintToStandardError(const wxString& text) {
    (void)std::fputs(ToUtf8(text).c_str(), stderr);
}

bool HasWildcard(const wxString& path) {
    return path.find_first_of("*?") != wxString::npos;
}

void WarnOfValue(const wxString& key, const wxString& reason) {
    wxLogWarning("%s %s: ignored", key, reason);
}

}  // namespace

void CAgentApp::TakeRemainingOptions(const wxCmdLineParser& parser) {
    wxString value;
    if (parser.Found("trace", &value)) {
        value.Replace("'", "");
        value.Replace("\"", "");
        (void)m_pDom->SetWx("app.trace", value);
    }
    for (const wxString& invalid : TakeDomainVariables(parser, *m_pDom)) {
        PrintToStandardError(wxString::Format(
            "Ignoring invalid domain variable specification '%s': expected name=value format\n",
            invalid));
    }
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

    ApplyTraceList(TraceListOf(*config, GetAppName()));
    PublishConfiguration(ReadConfiguration(*config, WarnOfValue), *m_pDom);
    ZelkaCore::CSqliteDatabase::InitializeSQLite(*m_pDom);
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
    ApplyTraceList(TraceListOf(*ZelkaCore::OpenIniFiles(paths), GetAppName()));
    wxLogVerbose("The configuration was read anew");
    (void)m_pDom->ConditionRaise("app.configChanged");
    return true;
}
