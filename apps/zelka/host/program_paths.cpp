// Where the program lies, and the frame of its life: OnInit and OnExit.

#include "apps/zelka/host/program_paths.h"

#include <wx/log.h>
#include <wx/stdpaths.h>
#include <wx/translation.h>

#include <climits>

#include "apps/zelka/version.h"
#include "apps/zelka/zelka.h"
#include "platform/process_setup.h"
#include "zelka_core/system/crash_handler.h"

namespace {

constexpr const char* kMaker = "Orvane";

wxString ProgramPath() {
    wchar_t buffer[PATH_MAX];
    const DWORD length = GetModuleFileNameW(nullptr, buffer, PATH_MAX);
    if (length == 0) {
        wxLogApiError("GetModuleFileName", static_cast<long>(GetLastError()));
    }
    return {buffer, length};
}

wxString TranslatedMaker() {
    const wxTranslations* translations = wxTranslations::Get();
    const wxString* translated =
        translations != nullptr ? translations->GetTranslatedString(kMaker) : nullptr;
    return translated != nullptr ? *translated : wxString(kMaker);
}

}  // namespace

wxFileName MakerFolder(const wxFileName& bin) {
    wxFileName maker = bin;
    if (maker.GetDirCount() >= 2) {
        maker.RemoveLastDir();
        if (!maker.GetPath(wxPATH_GET_VOLUME).Contains(kMaker)) {
            maker = bin;
        }
    }
    return maker;
}

bool CAgentApp::OnInit() {
    // Makes the log target: the framework drops records of other threads as long as there is none.
    (void)wxLog::GetActiveTarget();
    wxFileName bin(ProgramPath(), wxPATH_NATIVE);
    wxStandardPaths::Get().UseAppInfo(wxStandardPaths::AppInfo_AppName |
                                      wxStandardPaths::AppInfo_VendorName);
    if (!bin.IsOk()) {
        bin.Assign(argv[0]);
        (void)bin.MakeAbsolute();
    }
    wxFileName lib = bin;
    (void)lib.AppendDir("lib");
    (void)m_pDom->SetWx("app.path.bin", bin.GetPath(wxPATH_GET_VOLUME));
    (void)m_pDom->SetWx("app.path.lib", lib.GetPath(wxPATH_GET_VOLUME));
    (void)m_pDom->SetWx("app.path.ov", MakerFolder(bin).GetPath(wxPATH_GET_VOLUME));
    (void)m_pDom->Set("app.version", ZELKA_VERSION);
    SetVendorName(TranslatedMaker());

    if (!wxAppBase::OnInit()) {
        return false;
    }
    const wxFileName dump(m_pDom->GetPluginWorkdirWx("diag"), GetAppName(), "mdmp");
    bool fullDump = false;
    (void)m_pDom->Get("app.fulldump", fullDump);
    ZelkaCore::InitCrashHandler(dump.GetFullPath(), GetAppName(), fullDump);
    return true;
}

int CAgentApp::OnExit() {
    if (m_bDefaultAppName) {
        const wxTimeSpan runTime = wxDateTime::UNow() - m_startTime;
        wxLogVerbose("Run time was %s", runTime.Format("%Dd %H:%M:%S.%l"));
    }
    CoUninitialize();
    wxLog::FlushActive();  // records of the script thread that the main loop did not come to
    return wxAppBase::OnExit();
}
