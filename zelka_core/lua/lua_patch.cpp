#include "zelka_core/lua/lua_patch.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "zelka_core/log/log_file.h"
#include "zelka_core/lua/lua_children.h"

namespace ZelkaCore {

namespace {

constexpr const char* kThreads = "ZelkaCore.threads";

// coroutine.create: makes a Lua thread and remembers it.
int CreateThread(lua_State* L) {
    luaL_checktype(L, 1, LUA_TFUNCTION);
    lua_settop(L, 1);
    LuaPatchForWin::PushThreads(L);
    lua_State* thread = lua_newthread(L);
    lua_pushvalue(L, -1);
    lua_pushboolean(L, 1);
    lua_rawset(L, 2);
    lua_pushvalue(L, 1);
    lua_xmove(L, thread, 1);
    return 1;
}

// Resumes the thread with the arguments on the stack of L and leaves its results there. False with
// an error value there instead.
bool Resume(lua_State* L, lua_State* thread) {
    const int arguments = lua_gettop(L);
    if (!lua_checkstack(thread, arguments)) {
        lua_pushliteral(L, "too many arguments to resume");
        return false;
    }
    if (lua_status(thread) == LUA_OK && lua_gettop(thread) == 0) {
        lua_pushliteral(L, "cannot resume dead coroutine");
        return false;
    }
    lua_xmove(L, thread, arguments);
    const int status = lua_resume(thread, L, arguments);
    if (status != LUA_OK && status != LUA_YIELD) {
        lua_xmove(thread, L, 1);
        return false;
    }
    const int results = lua_gettop(thread);
    if (!lua_checkstack(L, results + 1)) {
        lua_pop(thread, results);
        lua_pushliteral(L, "too many results to resume");
        return false;
    }
    lua_xmove(thread, L, results);
    return true;
}

// The function that coroutine.wrap returns.
int ResumeWrapped(lua_State* L) {
    lua_State* thread = lua_tothread(L, lua_upvalueindex(1));
    if (thread == nullptr) {  // a script has put something else there
        return luaL_error(L, "cannot resume dead coroutine");
    }
    if (Resume(L, thread)) {
        return lua_gettop(L);
    }
    if (lua_isstring(L, -1)) {
        luaL_where(L, 1);
        lua_insert(L, -2);
        lua_concat(L, 2);
    }
    return lua_error(L);
}

int WrapThread(lua_State* L) {
    (void)CreateThread(L);
    lua_pushcclosure(L, ResumeWrapped, 1);
    return 1;
}

// os.exit. The usual clean-up of a process would pull static objects from under the other threads.
int ExitProcess(lua_State* L) {
    const int code = lua_isboolean(L, 1) ? (lua_toboolean(L, 1) ? EXIT_SUCCESS : EXIT_FAILURE)
                                         : luaL_optint(L, 1, EXIT_SUCCESS);
    (void)std::fflush(nullptr);
    CloseLogFile();
    std::_Exit(code);
}

// os.setlocale, with "C" as the one locale of the system.
int SetLocale(lua_State* L) {
    static const char* const kCategories[] = {"all",     "collate", "ctype", "monetary",
                                              "numeric", "time",    nullptr};
    const std::string_view locale = luaL_optstring(L, 1, "C");
    (void)luaL_checkoption(L, 2, "all", kCategories);
    if (locale == "C" || locale == "POSIX") {
        lua_pushliteral(L, "C");
    } else {
        lua_pushnil(L);
    }
    return 1;
}

void SetField(lua_State* L, const char* library, const char* name, lua_CFunction function) {
    lua_getglobal(L, library);
    lua_pushcfunction(L, function);
    lua_setfield(L, -2, name);
    lua_pop(L, 1);
}

}  // namespace

int LuaPatchForWin::LuaPatch(lua_State* L) {
    SetField(L, "coroutine", "create", CreateThread);
    SetField(L, "coroutine", "wrap", WrapThread);
    SetField(L, "os", "exit", ExitProcess);
    SetField(L, "os", "setlocale", SetLocale);
    PatchChildren(L);
    return 0;
}

void LuaPatchForWin::PushThreads(lua_State* L) {
    if (luaL_getsubtable(L, LUA_REGISTRYINDEX, kThreads)) {
        return;
    }
    lua_createtable(L, 0, 1);  // a metatable that lets the threads be collected
    lua_pushliteral(L, "k");
    lua_setfield(L, -2, "__mode");
    lua_setmetatable(L, -2);
}

}  // namespace ZelkaCore
