#include "apps/zelkctl/check/lua_probe.h"

#include <lua.hpp>
#include <stdexcept>

using ZelkaCore::CDom;
using ZelkaCore::CLuaInterpreter;
using ZelkaCore::CLuaStateLock;

extern const char kFindModule[];  // find_module.lua

namespace {

constexpr int kFinder = 1;  // the place of the compiled text on the stack

struct SetUp {
    CLuaInterpreter* lua;
    const CDom* dom;
};

int SetUpState(lua_State* L) {
    const auto* given = static_cast<const SetUp*>(lua_touserdata(L, 1));
    const CDom& dom = *given->dom;
    given->lua->SetPackagePaths(dom.Get("app.path.bin"), dom.Get("app.lua.path"),
                                dom.Get("app.lua.cpath"));
    (void)dom.RegisterLoader(L);
    return 0;
}

std::string TextAt(lua_State* L, int index) {
    std::size_t size = 0;
    const char* text = lua_type(L, index) == LUA_TSTRING ? lua_tolstring(L, index, &size) : nullptr;
    return text != nullptr ? std::string(text, size) : std::string();
}

}  // namespace

LuaProbe::LuaProbe(const CDom& dom) : m_lua(false, L"zelkctl", true) {
    const CLuaStateLock::Hold hold(m_lua.Lock());
    lua_State* L = m_lua.L();
    SetUp given{.lua = &m_lua, .dom = &dom};
    lua_pushcfunction(L, SetUpState);
    lua_pushlightuserdata(L, &given);
    if (lua_pcall(L, 1, 0, 0) != LUA_OK || luaL_loadstring(L, kFindModule) != LUA_OK) {
        throw std::runtime_error(TextAt(L, -1));
    }
}

LuaProbe::Answer LuaProbe::Find(const std::string& module, std::string& text) {
    const CLuaStateLock::Hold hold(m_lua.Lock());
    lua_State* L = m_lua.L();
    lua_settop(L, kFinder);
    lua_pushvalue(L, kFinder);
    lua_pushlstring(L, module.data(), module.size());
    const bool hasRun = lua_pcall(L, 1, 2, 0) == LUA_OK;
    const bool isFound = hasRun && lua_toboolean(L, -2) != 0;
    if (!isFound) {
        text = TextAt(L, -1);
    }
    if (!hasRun) {
        return Answer::kBroken;
    }
    return isFound ? Answer::kFound : Answer::kNotFound;
}
