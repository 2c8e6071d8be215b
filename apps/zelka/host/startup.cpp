// Set-up and tear-down of the process: constructor and destructor of the application object.

#include <openssl/conf.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <wx/log.h>

#include <climits>
#include <cstdlib>
#include <ctime>

#include "apps/zelka/zelka.h"
#include "platform/process_setup.h"
#include "zelka_core/log/log2disk.h"
#include "zelka_core/store/sqlite_database.h"
#include "zelka_core/system/openssl_threads.h"

namespace {

constexpr DWORD kErrorMode =
    SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX;
constexpr unsigned kWinsockVersion = 0x0202;
constexpr int kSeedRounds = 100;

// Shared libraries are searched for in the folder `lib` beside the program, or nowhere but in the
// system's folders if the program's own cannot be found out.
void SetLibraryFolder() {
    wchar_t buffer[PATH_MAX];
    const DWORD length = GetModuleFileNameW(nullptr, buffer, PATH_MAX);
    const wxString program(buffer, length);
    const std::size_t separator = program.rfind('/');
    const bool known = length != 0 && separator != wxString::npos;
    (void)SetDllDirectoryW(known ? wxString(program.substr(0, separator) + "/lib").wc_str() : L"");
}

void SeedRandomGenerator() {
    for (int round = 0; round < kSeedRounds; ++round) {
        (void)RAND_poll();
        if (RAND_status() != 0) {
            return;
        }
    }
}

}  // namespace

CAgentApp::CAgentApp() {
    StartupInit();
}

void CAgentApp::StartupInit() {
    SetLibraryFolder();
    const DWORD previousMode = SetErrorMode(kErrorMode);
    (void)SetErrorMode(previousMode | kErrorMode);
    (void)_set_abort_behavior(0, 3);
    (void)HeapSetInformation(0, HeapEnableTerminationOnCorruption, nullptr, 0);
    (void)CoInitializeEx(nullptr, COINIT_MULTITHREADED);
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
    if (const int error = WSAStartup(kWinsockVersion)) {
        wxLogSysError(error, "Winsock initialization failed");
        std::exit(error);
    }
    // Configuration files are loaded by OnRun and the library is cleaned up by the destructor.
    (void)OPENSSL_init_ssl(OPENSSL_INIT_ADD_ALL_CIPHERS | OPENSSL_INIT_ADD_ALL_DIGESTS |
                               OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_ATEXIT,
                           nullptr);
    ZelkaCore::OpenSSLThreadSetup();
    SeedRandomGenerator();
}

CAgentApp::~CAgentApp() {
    // Finalisers of scripts may log; the framework's target is gone by now.
    ZelkaCore::CLog2Disk target;
    wxLog* const outer = wxLog::SetActiveTarget(&target);
    delete m_pLua.Take();
    delete std::exchange(m_pDom, nullptr);
    delete std::exchange(m_pParentWindow, nullptr);
    TeardownOncePerProcess();
    (void)wxLog::SetActiveTarget(outer);
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
    (void)WSACleanup();
    ZelkaCore::CSqliteDatabase::ShutdownSQLite();
}
