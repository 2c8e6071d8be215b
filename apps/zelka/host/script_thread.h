#pragma once

#include "zelka_core/system/runnable.h"

// The thread that runs the Lua application: CAgentApp::OnRunScript, whose result ends the main
// loop.
class CScriptThread : public ZelkaCore::CRunnable {
  public:
    CScriptThread() : CRunnable(false, -1, false) {}
    ~CScriptThread() override;

  protected:
    const char* GetThreadName() override { return "CScriptThread"; }
    void ThreadMain() override;
};
