#include "zelka_core/lua/lua_patch.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "zelka_core/log/log_file.h"
#include "zelka_core/lua/lua_children.h"
#include "zelka_core/lua/lua_config.h"
#include "zelka_core/lua/lua_coroutines.h"
#include "zelka_core/lua/lua_process.h"

namespace ZelkaCore {

namespace {

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
    PatchCoroutines(L);
    SetField(L, "os", "exit", ExitProcess);
    SetField(L, "os", "setlocale", SetLocale);
    PatchChildren(L);
    PreloadConfig(L);
    PreloadProcess(L);
    return 0;
}

}  // namespace ZelkaCore
