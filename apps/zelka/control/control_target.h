#pragma once

#include <wx/string.h>

#include <chrono>

namespace ZelkaCore {
class CDom;
class CLuaInterpreter;
}  // namespace ZelkaCore

// Where a run is.
enum class RunPhase { kStarting, kInit, kMain, kTasks, kStopping, kShutdown, kOver };

// The agent, as its control socket sees it. Any thread.
class ControlTarget {
  public:
    virtual ~ControlTarget() = default;

    // Outlives those who ask.
    [[nodiscard]] virtual ZelkaCore::CDom* Dom() const = 0;

    // Null before there is one; outlives those who ask otherwise.
    [[nodiscard]] virtual ZelkaCore::CLuaInterpreter* Interpreter() const = 0;

    [[nodiscard]] virtual RunPhase Phase() const = 0;
    [[nodiscard]] virtual std::chrono::milliseconds Uptime() const = 0;
    [[nodiscard]] virtual bool IsService() const = 0;
    [[nodiscard]] virtual bool IsHardened() const = 0;

    // Asks for the end of the run, as the service manager or a signal would.
    virtual void Stop() = 0;

    // Reads the ini files anew. False, with `problem` saying what is wrong with them, if all stays
    // as it is.
    virtual bool Reload(wxString& problem) = 0;
};
