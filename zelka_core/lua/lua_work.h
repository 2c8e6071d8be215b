#pragma once

#include <exception>
#include <lua.hpp>
#include <string>

namespace ZelkaCore {

// Runs `function(L)` in protected mode, inside a C function that Lua calls, and leaves the stack as
// it was: for work of another thread (lua_state_lock.h). Lua errors and exceptions end it. False
// then, with their text in `error`.
template <class Function>
bool RunProtected(lua_State* L, const Function& function, std::string& error) {
    constexpr int kSlots = 2;
    if (!lua_checkstack(L, kSlots)) {
        error = "no room on the Lua stack";
        return false;
    }
    const lua_CFunction call = [](lua_State* state) {
        try {
            (*static_cast<const Function*>(lua_touserdata(state, 1)))(state);
            return 0;
        } catch (const std::exception& problem) {  // Lua's own errors are none
            lua_pushstring(state, problem.what());
        }
        return lua_error(state);
    };
    const int top = lua_gettop(L);
    lua_pushcclosure(L, call, 0);
    lua_pushlightuserdata(L, const_cast<Function*>(&function));
    const bool isDone = lua_pcallk(L, 1, 0, 0, 0, nullptr) == LUA_OK;
    if (!isDone) {
        const char* text = lua_tostring(L, -1);
        error = text != nullptr ? text : "an error without a text";
    }
    lua_settop(L, top);
    return isDone;
}

}  // namespace ZelkaCore
