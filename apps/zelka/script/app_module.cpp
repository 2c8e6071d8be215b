// The Lua application: a module named after it, with up to three functions, init, main and
// shutdown. It is driven by small chunks of Lua text, whose results all come back as one integer.

#include <wx/ffile.h>
#include <wx/sstream.h>
#include <wx/wfstream.h>

#include <cstdio>

#include "apps/zelka/script/script_output.h"
#include "apps/zelka/zelka.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/lua/lua_interpreter.h"

using ZelkaCore::CLuaStateLock;

int CAgentApp::StartAppModule() {
    MaintainPlugins();
    ExpandZippath();
    if (const int status = MakeInterpreter()) {
        return status;
    }
    const wxString load = wxString::Format("zelkaAppModule = require([[%s]]);", GetAppName());
    if (const int result = RunStringChunk(load)) {
        return result;
    }
    m_phase = RunPhase::kInit;
    return RunAppMethod(L"init");
}

int CAgentApp::RunAppMethod(const wchar_t* method) {
    ZELKA_TRACE("Appl", "CAgentApp::RunAppMethod", "Running app's Lua method '%s'", method);
    return RunStringChunk(
        wxString::Format("if type(zelkaAppModule.%1$s) == 'function' then return "
                         "zelkaAppModule.%1$s(); else return 0; end;",
                         method));
}

int CAgentApp::RunStringChunk(const wxString& text) {
    StandardOutput output;
    wxStringInputStream chunk(text);
    const int result = RunChunk(chunk, &output.Stream(), GetAppName());
    if (result != 0) {
        PrintErrorInfo(m_pLua->GetErrorInfo());
    }
    return result;
}

int CAgentApp::RunChunk(wxInputStream& chunk, wxOutputStream* output, const wxString& name) {
    ZELKA_TRACE("Appl", "CAgentApp::RunChunk", "Running chunk '%s'", name);
    // Held until the result is off the stack.
    const CLuaStateLock::Hold hold(m_pLua->Lock());
    lua_Integer result = m_pLua->RunScript(chunk, 0, 1, name, output);
    if (result == LUA_OK) {
        result = lua_tointegerx(m_pLua->L(), -1, nullptr);
        lua_settop(m_pLua->L(), -2);
    }
    const int low = static_cast<int>(result);
    ZELKA_TRACE("Appl", "CAgentApp::RunChunk", "Chunk produced a return value of %d", low);
    return low;
}
