// Controls of the service manager, and reports to it.

#include <wx/log.h>

#include <chrono>

#include "apps/zelka/script/dom_binding.h"
#include "apps/zelka/service/service_controls.h"
#include "apps/zelka/service/service_entries.h"
#include "zelka_core/log/system_error.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/lua_work.h"

using ZelkaCore::CDom;

namespace {

constexpr const char* kFunction = "CAgentApp::ServiceCtrl";
constexpr unsigned kStopWaitHint = 15'000;  // milliseconds

// How long a dump may wait for a script that is inside native code. Controls wait for each other,
// and a stop must not wait long.
constexpr std::chrono::seconds kDumpPatience{2};

struct DumpRequest {
    CDom* dom;
    DumpDepth depth;
};

void Dump(lua_State* L, DumpRequest request) {
    std::string error;
    const auto dump = [&](lua_State* state) {
        lua_settop(state, 0);
        PushDom(state, request.dom);
        const bool isFull = request.depth == DumpDepth::kFull;
        lua_pushnil(state);                                          // every Lua thread
        lua_pushboolean(state, isFull);                              // locals
        lua_pushboolean(state, request.depth != DumpDepth::kBrief);  // tracebacks
        lua_pushboolean(state, isFull);                              // variables
        (void)CDom::DumpAllLua(state);
    };
    if (!ZelkaCore::RunProtected(L, dump, error)) {
        wxLogWarning("The dump is not complete: %s", wxString::FromUTF8(error));
    }
}

// The phase in words that an operator reads.
std::string PhaseText(unsigned state, unsigned exitCode) {
    switch (state) {
        case SERVICE_START_PENDING:
            return "init";
        case SERVICE_RUNNING:
            return "running";
        case SERVICE_STOP_PENDING:
            return "stopping";
        default:
            return "stopped (exit code " + std::to_string(static_cast<int>(exitCode)) + ")";
    }
}

}  // namespace

DWORD ServiceCtrlEntry(DWORD control, DWORD eventType, void*, void* context) {
    return static_cast<CAgentApp*>(context)->ServiceCtrl(control, eventType);
}

unsigned CAgentApp::ServiceCtrl(unsigned ctrl, unsigned evType) {
    ZELKA_TRACE("Srvc", kFunction, "ServiceCtrl(ctrl=%d, evType=%d)", static_cast<int>(ctrl),
                static_cast<int>(evType));
    const Control* control = FindControl(ctrl);
    if (control == nullptr) {
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
    if (control->take != nullptr) {
        (this->*control->take)(*control);
    }
    return NO_ERROR;
}

void CAgentApp::TellToStop(const Control&) {
    SetServiceStatus(SERVICE_STOP_PENDING, 0, 0, kStopWaitHint);
    ZELKA_TRACE("Srvc", kFunction, "ServiceCtrl() - telling main thread to shutdown");
    m_pDom->RequestStop();
    if (const auto error = SetEvent(m_hStopEvent)) {
        ZelkaCore::LogSystemError(error, "SetEvent() failed");
        SetServiceStatus(SERVICE_STOPPED, static_cast<unsigned>(error.value()), 0, 0);
    }
}

// Writes the state of the Lua application to the log: at once if no script runs, and otherwise from
// inside the one that does.
void CAgentApp::DumpLua(const Control& control) {
    ZelkaCore::CLuaInterpreter* lua = m_pLua.Get();
    if (lua == nullptr) {
        wxLogWarning("Service control %u is refused: there is no Lua interpreter yet",
                     control.rule.control);
    } else {
        wxLogVerbose("%s", wxString::FromUTF8(control.text));
        const DumpRequest request{m_pDom, control.depth};
        const auto work = [request](lua_State* L) { Dump(L, request); };
        if (!lua->Lock().Run(work, kDumpPatience)) {
            wxLogWarning(
                "The Lua application is inside native code; its dump follows when it returns");
        }
    }
    ReportReplyState(control);
}

// The state that answers a control: running once there is an interpreter, also while it starts or
// stops.
void CAgentApp::ReportReplyState(const Control&) {
    SetServiceStatus(m_pLua.Get() != nullptr ? SERVICE_RUNNING : SERVICE_START_PENDING, 0, 0, 0);
}

void CAgentApp::SetServiceStatus(unsigned state, unsigned exitCode, unsigned checkPoint,
                                 unsigned waitHint) {
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    if (state != SERVICE_START_PENDING) {
        status.dwControlsAccepted =
            m_bHardened ? SERVICE_ACCEPT_SHUTDOWN : SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN;
    }
    status.dwWin32ExitCode = exitCode;
    status.dwCheckPoint = checkPoint;
    status.dwWaitHint = waitHint;
    const auto error = ::SetServiceStatus(m_hServiceStatus, status, PhaseText(state, exitCode));
    if (error) {
        ZelkaCore::LogSystemError(error, "SetServiceStatus() failed");
    }
}
