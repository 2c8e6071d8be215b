#include "apps/zelka/host/script_thread.h"

#include "apps/zelka/zelka.h"
#include "zelka_core/log/log2disk.h"

namespace {

// Lets the records of the thread go to the log at once. Without a target of its own they wait for
// the main loop, behind later trace lines, and are lost when a script ends the process.
class ThreadLogTarget {
  public:
    ThreadLogTarget() { delete wxLog::SetThreadActiveTarget(new ZelkaCore::CLog2Disk); }
    ~ThreadLogTarget() { delete wxLog::SetThreadActiveTarget(nullptr); }
    ThreadLogTarget(const ThreadLogTarget&) = delete;
    ThreadLogTarget& operator=(const ThreadLogTarget&) = delete;
};

// Ends the main loop when it goes, so that no way out of the thread leaves the process hanging.
class MainLoopEnder {
  public:
    MainLoopEnder() = default;
    ~MainLoopEnder() { TheAgentApp().EndMainLoop(m_result); }
    MainLoopEnder(const MainLoopEnder&) = delete;
    MainLoopEnder& operator=(const MainLoopEnder&) = delete;

    void SetResult(int result) { m_result = result; }

  private:
    int m_result = -1;
};

}  // namespace

CScriptThread::~CScriptThread() {
    requestExit();
    (void)join();
}

void CScriptThread::ThreadMain() {
    const ThreadLogTarget log;
    MainLoopEnder ender;
    ender.SetResult(TheAgentApp().OnRunScript());
}
