// The life of the application object, from its construction to its destruction: the set-up and the
// tear-down of the process.

#include <openssl/conf.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <wx/filename.h>
#include <wx/log.h>
#include <wx/stdpaths.h>
#include <wx/translation.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "apps/start/program_paths.h"
#include "apps/start/registry_file.h"
#include "apps/zelka/version.h"
#include "apps/zelka/zelka.h"
#include "platform/clock_change.h"
#include "platform/journal.h"
#include "platform/process_setup.h"
#include "platform/regkey.h"
#include "platform/stop_signals.h"
#include "zelka_core/log/log2disk.h"
#include "zelka_core/lua/lua_crash_text.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/store/sqlite_database.h"
#include "zelka_core/system/crash_handler.h"
#include "zelka_core/system/openssl_threads.h"

namespace {

constexpr int kSeedRounds = 100;
constexpr std::chrono::seconds kJournalPatience{2};

void SeedRandomGenerator() {
    for (int round = 0; round < kSeedRounds; ++round) {
        (void)RAND_poll();
        if (RAND_status() != 0) {
            return;
        }
    }
}

wxString TranslatedMaker() {
    const wxTranslations* translations = wxTranslations::Get();
    const wxString* translated =
        translations != nullptr ? translations->GetTranslatedString(kMaker) : nullptr;
    return translated != nullptr ? *translated : wxString(kMaker);
}

}  // namespace

CAgentApp::CAgentApp() {
    StartupInit();
}

void CAgentApp::StartupInit() {
    SetErrorMode();
    UseRegistryFile(RegistryFile());
    tzset();
    m_startTime = wxDateTime::UNow();

    wxLog::SetVerbose(true);
    wxLog::SetLogLevel(wxLOG_Info);
    wxLog::SetTimestamp("%Y-%m-%d %H:%M:%S");
    {
        const wxLogNull quiet;  // a locale that is not installed is no operator's trouble
        (void)m_locale.Init(wxLANGUAGE_DEFAULT, wxLOCALE_LOAD_DEFAULT);
    }
    PinTextEncoding();

    StartupOncePerProcess();
    m_pDom = ZelkaCore::CDom::New(nullptr, nullptr, nullptr, false);
    const std::int64_t milliseconds =
        static_cast<std::int64_t>(m_startTime.GetTicks()) * 1000 + m_startTime.GetMillisecond();
    (void)m_pDom->Set("app.startTime", milliseconds);
}

void CAgentApp::StartupOncePerProcess() {
    static bool done = false;
    if (done) {
        return;
    }
    done = true;
    // Configuration files are loaded by OnRun and the library is cleaned up by the destructor.
    (void)OPENSSL_init_ssl(OPENSSL_INIT_ADD_ALL_CIPHERS | OPENSSL_INIT_ADD_ALL_DIGESTS |
                               OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_ATEXIT,
                           nullptr);
    ZelkaCore::OpenSSLThreadSetup();
    SeedRandomGenerator();
}

bool CAgentApp::OnInit() {
    // Makes the log target: the framework drops records of other threads as long as there is none.
    (void)wxLog::GetActiveTarget();
    wxStandardPaths::Get().UseAppInfo(wxStandardPaths::AppInfo_AppName |
                                      wxStandardPaths::AppInfo_VendorName);
    PublishOwnPaths();
    (void)m_pDom->Set("app.version", ZELKA_VERSION);
    SetVendorName(TranslatedMaker());

    if (!wxAppBase::OnInit()) {
        return false;
    }
    const wxFileName dump(m_pDom->GetPluginWorkdirWx("diag"), GetAppName(), "mdmp");
    bool fullDump = false;
    (void)m_pDom->Get("app.fulldump", fullDump);
    ZelkaCore::InitCrashHandler(dump.GetFullPath(), GetAppName(), fullDump, ZelkaCore::DescribeLua);
    return true;
}

int CAgentApp::OnExit() {
    if (m_bDefaultAppName) {
        const wxTimeSpan runTime = wxDateTime::UNow() - m_startTime;
        wxLogVerbose("Run time was %s", runTime.Format("%Dd %H:%M:%S.%l"));
    }
    wxLog::FlushActive();  // records of the script thread that the main loop did not come to
    return wxAppBase::OnExit();
}

CAgentApp::~CAgentApp() {
    // Finalisers of scripts may log; the framework's target is gone by now.
    ZelkaCore::CLog2Disk target;
    wxLog* const outer = wxLog::SetActiveTarget(&target);
    ZelkaCore::ShowInCrashDumps(nullptr);
    delete m_pLua.Take();
    delete std::exchange(m_pDom, nullptr);
    delete std::exchange(m_pParentWindow, nullptr);
    TeardownOncePerProcess();
    (void)wxLog::SetActiveTarget(outer);
    SettleJournal(kJournalPatience);
}

void CAgentApp::TeardownOncePerProcess() {
    static bool done = false;
    if (done) {
        return;
    }
    done = true;
    ZelkaCore::OpenSSLThreadShutdown();
    CONF_modules_unload(1);
    OPENSSL_cleanup();
    ZelkaCore::CSqliteDatabase::ShutdownSQLite();
}
