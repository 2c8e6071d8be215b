#include "apps/zelka/host/script_thread.h"

#include "apps/zelka/zelka.h"
#include "zelka_core/log/log2disk.h"

namespace {

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
    const ZelkaCore::ThreadLogTarget log;
    MainLoopEnder ender;
    ender.SetResult(TheAgentApp().OnRunScript());
}
