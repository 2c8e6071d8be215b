#include "apps/zelka/zelka.h"

#include "zelka_core/log/log2disk.h"

CAgentApp& TheAgentApp() {
    return *static_cast<CAgentApp*>(wxAppConsole::GetInstance());
}

wxAppTraits* CAgentApp::CreateTraits() {
    return new CAgentAppTraits;
}

wxLog* CAgentAppTraits::CreateLogTarget() {
    return new ZelkaCore::CLog2Disk;
}
