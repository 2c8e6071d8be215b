#include "apps/zelka/zelka.h"

#include <wx/apptrait.h>

#include "zelka_core/log/log2disk.h"

namespace {

// Console traits: event loop and timers are those of a process without a display.
class CAgentAppTraits : public wxConsoleAppTraits {
  public:
    wxLog* CreateLogTarget() override { return new ZelkaCore::CLog2Disk; }
};

}  // namespace

CAgentApp& TheAgentApp() {
    return *static_cast<CAgentApp*>(wxAppConsole::GetInstance());
}

wxAppTraits* CAgentApp::CreateTraits() {
    return new CAgentAppTraits;
}
