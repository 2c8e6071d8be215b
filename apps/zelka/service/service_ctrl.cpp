// Controls of the service manager, and reports to it.

#include <wx/log.h>

#include <chrono>

#include "apps/zelka/script/dom_binding.h"
#include "apps/zelka/service/service_entries.h"
#include "apps/zelka/zelka.h"
#include "zelka_core/log/trace.h"

using ZelkaCore::CDom;

namespace {

constexpr const char* kFunction = "CAgentApp::ServiceCtrl";
constexpr unsigned kStopWaitHint = 15'000;  // milliseconds

// How long a dump may wait for a script that is inside native code. Controls wait for each other,
// and a stop must not wait long.
constexpr std::chrono::seconds kDumpPatience{2};

struct DumpRequest {
    CDom* dom;
    unsigned ctrl;
};

// Runs the dump in protected mode: all that can fail is inside.
int DumpProtected(lua_State* L) {
    const auto request = *static_cast<const DumpRequest*>(lua_touserdata(L, 1));
    lua_settop(L, 0);
    PushDom(L, request.dom);
    if (request.ctrl != SERVICE_CONTROL_DUMP_BRIEF) {
        const bool isFull = request.ctrl == SERVICE_CONTROL_DUMP_FULL;
        lua_pushnil(L);              // every Lua thread
        lua_pushboolean(L, isFull);  // locals
        lua_pushboolean(L, true);    // tracebacks
        if (isFull) {
            lua_pushboolean(L, true);  // variables
        }
    }
    return CDom::DumpAllLua(L);
}

void Dump(lua_State* L, DumpRequest request) {
    constexpr int kSlots = 2;
    if (!lua_checkstack(L, kSlots)) {
        return;
    }
    const int top = lua_gettop(L);
    lua_pushcclosure(L, DumpProtected, 0);
    lua_pushlightuserdata(L, &request);
    (void)lua_pcallk(L, 1, 0, 0, 0, nullptr);
    lua_settop(L, top);
}

const char* DumpText(unsigned ctrl) {
    switch (ctrl) {
        case SERVICE_CONTROL_DUMP_BRIEF:
            return "Dumping brief Lua thread info";
        case SERVICE_CONTROL_DUMP_STACK:
            return "Dumping Lua stack info";
        default:
            return "Dumping full Lua thread info";
    }
}

}  // namespace

DWORD ServiceCtrlEntry(DWORD control, DWORD eventType, void*, void* context) {
    return static_cast<CAgentApp*>(context)->ServiceCtrl(control, eventType);
}

unsigned CAgentApp::ServiceCtrl(unsigned ctrl, unsigned evType) {
    ZELKA_TRACE("Srvc", kFunction, "ServiceCtrl(ctrl=%d, evType=%d)", static_cast<int>(ctrl),
                static_cast<int>(evType));
    switch (ctrl) {
        case SERVICE_CONTROL_STOP:
        case SERVICE_CONTROL_SHUTDOWN:
            TellToStop();
            return NO_ERROR;
        case SERVICE_CONTROL_INTERROGATE:
            ReportReplyState();
            return NO_ERROR;
        case SERVICE_CONTROL_DEVICEEVENT:
        case SERVICE_CONTROL_HARDWAREPROFILECHANGE:
        case SERVICE_CONTROL_POWEREVENT:
            return NO_ERROR;
        case SERVICE_CONTROL_DUMP_BRIEF:
        case SERVICE_CONTROL_DUMP_STACK:
        case SERVICE_CONTROL_DUMP_FULL:
            DumpLua(ctrl);
            ReportReplyState();
            return NO_ERROR;
        default:
            return ERROR_CALL_NOT_IMPLEMENTED;
    }
}

void CAgentApp::TellToStop() {
    SetServiceStatus(SERVICE_STOP_PENDING, 0, 0, kStopWaitHint);
    ZELKA_TRACE("Srvc", kFunction, "ServiceCtrl() - telling main thread to shutdown");
    if (!SetEvent(m_hStopEvent)) {
        const DWORD code = GetLastError();
        wxLogSysError(static_cast<long>(code), "SetEvent() failed");
        SetServiceStatus(SERVICE_STOPPED, code, 0, 0);
    }
}

// Writes the state of the Lua application to the log: at once if no script runs, and otherwise from
// inside the one that does.
void CAgentApp::DumpLua(unsigned ctrl) {
    ZelkaCore::CLuaInterpreter* lua = m_pLua.Get();
    if (lua == nullptr) {
        wxLogWarning("Service control %u is refused: there is no Lua interpreter yet", ctrl);
        return;
    }
    wxLogVerbose("%s", wxString::FromUTF8(DumpText(ctrl)));
    const DumpRequest request{m_pDom, ctrl};
    const auto work = [request](lua_State* L) { Dump(L, request); };
    if (!lua->Lock().Run(work, kDumpPatience)) {
        wxLogWarning("The Lua application is inside native code; its dump follows when it returns");
    }
}

// The state that answers a control: running once there is an interpreter, also while it starts or
// stops.
void CAgentApp::ReportReplyState() {
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
    if (!::SetServiceStatus(m_hServiceStatus, &status)) {
        wxLogSysError(static_cast<long>(GetLastError()), "SetServiceStatus() failed");
    }
}
