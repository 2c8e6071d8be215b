#pragma once

#include <wx/datetime.h>
#include <wx/intl.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "apps/zelka/control/control_target.h"
#include "apps/zelka/plugins/package_trials.h"
#include "apps/zelka/watcher/stall_watch.h"
#include "platform/events.h"
#include "platform/headless.h"
#include "platform/service.h"
#include "zelka_core/mutex.h"
#include "zelka_core/published_pointer.h"
#include "zelka_core/store/wait.h"

class ClockChangeWatch;
class ControlServer;
class StopSignals;
class PackageRound;
class wxCmdLineParser;
class wxFileName;
class wxInputStream;
class wxOutputStream;
class wxRegKey;
class wxZipEntry;
struct lua_State;

namespace ZelkaCore {
class CAgentEvent;
class CDom;
class CLuaInterpreter;
}  // namespace ZelkaCore

// The application object, one per process. The framework drives it on the main thread:
// constructor, OnInit, OnRun, OnExit, destructor. The script thread runs OnRunScript.
//
// Its members are defined in the folders of the subsystems: host/, script/, service/, watcher/,
// plugins/, companions/.
class CAgentApp : public wxAppBase, public ControlTarget {
  public:
    CAgentApp();
    ~CAgentApp() override;
    CAgentApp(const CAgentApp&) = delete;
    CAgentApp& operator=(const CAgentApp&) = delete;

    bool OnInit() override;
    int OnRun() override;
    int OnExit() override;
    void OnInitCmdLine(wxCmdLineParser& parser) override;
    bool OnCmdLineParsed(wxCmdLineParser& parser) override;
    void OnEventLoopEnter(wxEventLoopBase* loop) override;
    void OnEventLoopExit(wxEventLoopBase* loop) override;
    void OnUnhandledException() override;
    bool OnExceptionInMainLoop() override;
    bool StoreCurrentException() override;
    void RethrowStoredException() override;

    // The store of the process, from the constructor to the destructor.
    [[nodiscard]] ZelkaCore::CDom* Dom() const override { return m_pDom; }

    // host/: what the control socket asks and wants. Any thread.
    [[nodiscard]] ZelkaCore::CLuaInterpreter* Interpreter() const override { return m_pLua.Get(); }
    [[nodiscard]] RunPhase Phase() const override { return m_phase; }
    [[nodiscard]] std::chrono::milliseconds Uptime() const override;
    [[nodiscard]] bool IsService() const override { return m_isService; }
    [[nodiscard]] bool IsHardened() const override { return m_isService && m_bHardened; }
    void Stop() override;
    bool Reload(wxString& problem) override;

    // The run sequence, on the script thread: becomes a service, or runs the application module's
    // init, main (or the unit test) and shutdown. Returns the process's exit code.
    int OnRunScript();

    // service/: the body of the service, on a thread of its own, and the handler of its controls,
    // on the script thread. See platform/service.h for both.
    void ServiceMain(unsigned count, const wchar_t** arguments);
    unsigned ServiceCtrl(unsigned ctrl, unsigned evType);

    // The service that this process can be, with the controls that it takes.
    static ServiceProfile DescribeService();

    // Reports to the service manager, from either of these threads. The wait hint is in
    // milliseconds. A failure is logged.
    void SetServiceStatus(unsigned state, unsigned exitCode, unsigned checkPoint,
                          unsigned waitHint);

    // Ends the main loop with `result`, also before it has begun. From any thread.
    void EndMainLoop(int result);

  protected:
    wxAppTraits* CreateTraits() override;

  private:
    // host/: set-up and tear-down of the process
    void StartupInit();
    static void StartupOncePerProcess();
    static void TeardownOncePerProcess();
    void PublishOwnPaths();

    // host/ and watcher/: the main loop, whose end may be asked for before it begins. Each second
    // it looks for a stall of the application, and tells the service manager that there is none.
    void QueueEndOfMainLoop(int result) ZELKA_REQUIRES(m_loopMutex);
    void WatchClock();
    std::unique_ptr<ControlServer> OpenControlSocket();  // null if there is none
    void WatchStopSignals();
    void OnTick();

    // host/: the cryptographic provider. Ends the process if a file that FIPS needs is missing.
    void SelectCryptoProvider() const;

    // host/: command line and configuration. Each takes its options from the parser and writes what
    // they say into members and domain variables.
    void TakeIdentity(const wxCmdLineParser& parser, const wxFileName& executable);
    void TakeRunMode(const wxCmdLineParser& parser);
    bool SettleWorkdir(const wxCmdLineParser& parser, const wxFileName& executable);
    void TakeRemainingOptions(const wxCmdLineParser& parser);
    void OpenLog();
    void OpenConfiguration();
    void ApplyTraceList(const wxString& modules) ZELKA_EXCLUDES(m_iniMutex);

    // script/: the Lua application. Each returns 0 to go on and anything else to stop; failures
    // have told standard error why.
    int StartAppModule();
    int MakeInterpreter();
    static int SetupLua(lua_State* L);
    int SetupLua();
    void BuildArg(lua_State* L) const;
    int RunAppMethod(const wchar_t* method);
    int RunStringChunk(const wxString& text);
    int RunChunk(wxInputStream& chunk, wxOutputStream* output, const wxString& name);
    int RunUnitTest();
    bool BecomeService(int& result);

    // script/: the tasks, behind main. RunTasks returns when all have ended or the run is to stop,
    // EndTasks when none is left that ends in time; ResultOfTasks is 0 or the exit code of the run.
    // WaitWithTasks lets the tasks run meanwhile.
    ZelkaCore::WaitResult WaitWithTasks(std::vector<ZelkaCore::Awaited> items,
                                        const ZelkaCore::Deadline& deadline);
    void RunTasks();
    void EndTasks();
    [[nodiscard]] int ResultOfTasks() const;
    void ExpandZippath();

    // service/: parts of ServiceMain and ServiceCtrl. Exit codes are those of the service.
    void ReadSelfProtection(wxRegKey& key);
    unsigned RunService(unsigned count, const wchar_t** arguments);
    unsigned CreateServiceEvents();
    void WaitForStop();
    void TakeHardening();
    unsigned StopService();
    struct Control;  // a row of the table of controls
    static std::span<const Control> Controls();
    static const Control* FindControl(unsigned number);
    void TellToStop(const Control& control);
    void DumpLua(const Control& control);
    void ReportReplyState(const Control& control);
    void ReloadConfiguration(const Control& control);  // in host/

    // plugins/: the packages beside the program. None of it fails a start: what goes wrong stands
    // in the log and in the package's agent event.
    void MaintainPlugins();
    void UninstallOldPlugins();
    void InstallNewPlugins();
    void DeleteConflictingRelays(const wxString& bin);
    // False, without an event, for a package that is passed over.
    bool InstallPackage(const wxFileName& package, ZelkaCore::CAgentEvent& event);
    bool Unpack(const wxFileName& package);
    void RemovePackage(const wxFileName& package, ZelkaCore::CAgentEvent& event);
    bool WalkThrough(const wxFileName& package);
    void MoveZombiesAside();
    static bool InstallPluginZipCB(void* userData, const wxZipEntry* entry, const wxString* target);
    static bool UninstallPluginZipCB(void* userData, const wxZipEntry* entry,
                                     const wxString* target);

    // companions/: the processes beside the agent. `binPrefix` is the program's folder in lower
    // case: only what was started from there is stopped. False if one of ours may still be running.
    bool ShutdownTarvok(const wxString& binPrefix);
    bool ShutdownNginx(const wxString& binPrefix);
    void CheckOldWebServer();
    bool RenameLockedFile(const wxString& name);

    enum class LoopState { kAwaited, kRunning, kOver };

    // Any thread. The store guards itself; the interpreter's state is guarded by its own lock.
    ZelkaCore::CDom* m_pDom = nullptr;  // owned; constant after construction
    ZelkaCore::PublishedPointer<ZelkaCore::CLuaInterpreter>
        m_pLua;  // owned; made by StartAppModule
    ZelkaCore::Mutex m_loopMutex;
    LoopState m_loopState ZELKA_GUARDED_BY(m_loopMutex) = LoopState::kAwaited;
    std::optional<int> m_earlyResult ZELKA_GUARDED_BY(m_loopMutex);  // came before the loop

    // The main thread's.
    wxLocale m_locale;
    wxDateTime m_startTime;
    wxWindow* m_pParentWindow = nullptr;             // owned; parent of the frame
    std::unique_ptr<ClockChangeWatch> m_clockWatch;  // while the main loop runs
    std::unique_ptr<StopSignals> m_stopSignals;      // likewise, unless the run is a service
    bool m_bHoldsStopSignals = false;
    StallWatch m_stallWatch;
    std::exception_ptr m_storedException;  // on its way out of the main loop
    bool m_bExceptionReported = false;     // in the log, by OnExceptionInMainLoop

    // The main thread's until the script thread starts, which reads them; constant from then on.
    bool m_bInstallPlugins = false;  // the switch install_plugins was given
    bool m_bDefaultAppName = false;  // the application's name is exactly zelk_agent
    wxString m_strExtDir;            // value of the option extdir
    wxString m_strUnitTest;          // value of the option unittest, if accepted

    // Any thread.
    ZelkaCore::Mutex m_iniMutex;
    wxString m_strIniTrace ZELKA_GUARDED_BY(m_iniMutex);  // what the ini files have last named
    std::atomic<RunPhase> m_phase = RunPhase::kStarting;
    std::atomic<bool> m_isService = false;
    PackageTrials m_packageTrials;
    const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();

    // Likewise, but the thread that runs Lua owns them then, and changes them.
    bool m_bBackground = false;            // run as a service
    wxString m_strZipPath;                 // value of the option zippath
    bool m_bTarvokShutdownFailed = false;  // since CheckOldWebServer; until a relay is installed
    bool m_bNginxShutdownFailed = false;   // likewise
    PackageRound* m_pRound = nullptr;      // while packages are carried out

    // The service thread's; read also by the handler of controls.
    std::atomic<bool> m_bHardened = false;  // does not accept the stop control
    std::atomic<SERVICE_STATUS_HANDLE> m_hServiceStatus = 0;
    std::atomic<HANDLE> m_hStopEvent = INVALID_HANDLE_VALUE;    // manual reset
    std::atomic<HANDLE> m_hHardenEvent = INVALID_HANDLE_VALUE;  // automatic reset; 0: there is none
};

// The one application object, from its construction to its destruction. Any thread.
CAgentApp& TheAgentApp();
