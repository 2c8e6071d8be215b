// The table of controls. To add one, add a row, and the member function that it names.

#include "apps/zelka/service/service_controls.h"

#include <algorithm>
#include <array>

namespace {

constexpr const char* kDefaultName = "zelk_agent";

}  // namespace

std::span<const CAgentApp::Control> CAgentApp::Controls() {
    using App = CAgentApp;
    static constexpr std::array kControls{
        // The number, its signal behind RTMIN, whether it passes while the service starts.
        Control{{SERVICE_CONTROL_STOP, 0, false}, &App::TellToStop},
        Control{{SERVICE_CONTROL_SHUTDOWN, 0, false}, &App::TellToStop},
        Control{{SERVICE_CONTROL_INTERROGATE, 0, true}, &App::ReportReplyState},
        Control{{SERVICE_CONTROL_PARAMCHANGE, 0, true}, &App::ReloadConfiguration},
        Control{{SERVICE_CONTROL_DEVICEEVENT, 0, false}, nullptr},
        Control{{SERVICE_CONTROL_HARDWAREPROFILECHANGE, 0, false}, nullptr},
        Control{{SERVICE_CONTROL_POWEREVENT, 0, false}, nullptr},
        Control{{SERVICE_CONTROL_DUMP_BRIEF, 1, true},
                &App::DumpLua,
                DumpDepth::kBrief,
                "Dumping brief Lua thread info"},
        Control{{SERVICE_CONTROL_DUMP_STACK, 2, true},
                &App::DumpLua,
                DumpDepth::kStack,
                "Dumping Lua stack info"},
        Control{{SERVICE_CONTROL_DUMP_FULL, 3, true},
                &App::DumpLua,
                DumpDepth::kFull,
                "Dumping full Lua thread info"},
    };
    return kControls;
}

ServiceProfile CAgentApp::DescribeService() {
    ServiceProfile profile{.name = kDefaultName,
                           .argumentsVariable = "ZELKA_SERVICE_ARGS",
                           .exitStatusVariable = "ZELKA_SERVICE_EXIT_STATUS",
                           .controls = {}};
    for (const Control& control : Controls()) {
        profile.controls.push_back(control.rule);
    }
    return profile;
}

const CAgentApp::Control* CAgentApp::FindControl(unsigned number) {
    const auto controls = Controls();
    const auto found = std::find_if(controls.begin(), controls.end(), [&](const Control& control) {
        return control.rule.control == number;
    });
    return found == controls.end() ? nullptr : &*found;
}
