#pragma once

#include <chrono>

namespace ZelkaCore {
class CDom;
class CLuaInterpreter;
}  // namespace ZelkaCore

// Notices when Lua code runs for longer than the variable `app.lua.stallLimit` says, in
// milliseconds, without waiting: nothing else of the application goes on meanwhile. For the main
// thread.
class StallWatch {
  public:
    // Whether it stalls now. Tells each stall once: in the log with the Lua stack, and as agent
    // event 5202.
    bool Look(ZelkaCore::CLuaInterpreter& lua, ZelkaCore::CDom& dom);

  private:
    std::chrono::steady_clock::rep m_told = 0;  // when the stretch began that was told last
};
