// The one interpreter of the process and its global environment, before any script runs.

#include <algorithm>
#include <climits>
#include <cstdio>
#include <memory>

#include "apps/zelka/host/raw_arguments.h"
#include "apps/zelka/script/dom_binding.h"
#include "apps/zelka/zelka.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/lua/lua_arguments.h"
#include "zelka_core/lua/lua_crash_text.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/lua_patch.h"
#include "zelka_core/lua/lua_tasks.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

using ZelkaCore::CDom;
using ZelkaCore::CLuaInterpreter;
using ZelkaCore::CLuaStateLock;
using ZelkaCore::ToUtf8;

namespace {

constexpr double kLuaVersion = 502;

// The error value of a failed set-up as text, without calling into Lua.
const char* ErrorText(lua_State* L) {
    const char* text = lua_type(L, -1) == LUA_TSTRING ? lua_tostring(L, -1) : nullptr;
    return text != nullptr ? text : luaL_typename(L, -1);
}

// The memory that scripts may use, in MiB, from the variable `app.lua.memoryLimit`. Unset or no
// positive number: the interpreter's own limit stays.
void ApplyMemoryLimit(const CDom& dom, CLuaInterpreter& interpreter) {
    unsigned long long mebibytes = 0;
    if (dom.GetWxString("app.lua.memoryLimit").ToULongLong(&mebibytes) && mebibytes != 0) {
        interpreter.SetMemoryLimit(std::min(mebibytes, ULLONG_MAX >> 20) << 20);
    }
}

}  // namespace

// Makes the interpreter and sets it up in one protected call. Returns a Lua status.
int CAgentApp::MakeInterpreter() {
    const wxString name = wxString::Format("%s.lua", GetAppName());
    auto interpreter = std::make_unique<CLuaInterpreter>(false, name.wc_str(), true);
    ApplyMemoryLimit(*m_pDom, *interpreter);
    m_pLua = interpreter.release();
    const CLuaStateLock::Hold hold(m_pLua->Lock());
    lua_State* L = m_pLua->L();
    lua_pushlightuserdata(L, this);
    lua_pushcclosure(L, &CAgentApp::SetupLua, 1);
    const int status = lua_pcallk(L, 0, 0, 0, 0, nullptr);
    if (status != LUA_OK) {
        (void)std::fputs("Error setting up Lua:\n", stderr);
        (void)std::fputs(ErrorText(L), stderr);
        (void)std::fputs("\n", stderr);
    }
    return status;
}

int CAgentApp::SetupLua(lua_State* L) {
    auto* app = static_cast<CAgentApp*>(lua_touserdata(L, lua_upvalueindex(1)));
    wxASSERT(app != nullptr && L == app->m_pLua->L());
    return ZelkaCore::CallGuarded(L, [](lua_State* state) {
        return static_cast<CAgentApp*>(lua_touserdata(state, lua_upvalueindex(1)))->SetupLua();
    });
}

int CAgentApp::SetupLua() {
    lua_State* L = m_pLua->L();
    luaL_checkversion_(L, kLuaVersion);
    ZelkaCore::ShowInCrashDumps(m_pLua.Get());
    const std::string cpath = m_pDom->Get("app.lua.cpath");
    const std::string path = m_pDom->Get("app.lua.path");
    const std::string bin = m_pDom->Get("app.path.bin");
    m_pLua->SetPackagePaths(bin, path, cpath);

    PushDom(L, m_pDom);
    lua_pushvalue(L, -1);
    lua_setglobal(L, "dom0");
    lua_setglobal(L, "dom");
    (void)m_pDom->RegisterLoader(L);
    ZELKA_TRACE("Srvc", "CAgentApp::SetupLua",
                "ServiceMain() app.path.bin %s app.lua.path %s app.lua.cpath %s",
                m_pDom->GetWxString("app.path.bin"), m_pDom->GetWxString("app.lua.path"),
                m_pDom->GetWxString("app.lua.cpath"));
    (void)ZelkaCore::LuaPatchForWin::LuaPatch(L);
    ZelkaCore::PreloadTasks(L, *m_pDom);
    BuildArg(L);
    return 0;
}

// The global `arg`: the application's name at 0, what stands behind "--" from 1 on, everything in
// front of it at negative indices; without "--" all arguments are in front. Bytes stay as they
// came.
void CAgentApp::BuildArg(lua_State* L) const {
    const std::vector<std::string>& raw = RawArguments();
    const int count = static_cast<int>(raw.size());
    int zero = 0;
    while (zero < count && raw[static_cast<std::size_t>(zero)] != "--") {
        ++zero;
    }
    luaL_checkstack(L, count, "too many arguments to script");
    lua_createtable(L, count, 0);
    for (int i = 0; i < count; ++i) {
        if (i != zero) {
            const std::string& argument = raw[static_cast<std::size_t>(i)];
            lua_pushlstring(L, argument.data(), argument.size());
            lua_rawseti(L, -2, i - zero);
        }
    }
    const std::string name = ToUtf8(GetAppName());
    lua_pushlstring(L, name.data(), name.size());
    lua_rawseti(L, -2, 0);
    lua_setglobal(L, "arg");
}
