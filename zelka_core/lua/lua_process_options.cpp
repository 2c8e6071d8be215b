#include "zelka_core/lua/lua_process_options.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

namespace ZelkaCore {

namespace {

constexpr std::array<std::string_view, 5> kKeys{"timeout", "input", "limit", "env", "cwd"};

std::string CheckWithoutNull(const LuaCall& call, int index, const char* name) {
    std::string text = call.Text(index, name);
    if (text.find('\0') != std::string::npos) {
        call.Raise(name, "must not contain a null byte");
    }
    return text;
}

std::int64_t CheckNotNegative(const LuaCall& call, int index, const char* name) {
    const std::int64_t number = call.Integer(index, name);
    if (number < 0) {
        call.Raise(name, "must be 0 or more");
    }
    return number;
}

// Returns the greatest position in the table.
int CheckKeys(const LuaCall& call, int table) {
    lua_State* L = call.L;
    int last = 0;
    lua_pushnil(L);
    while (lua_next(L, table) != 0) {
        lua_pop(L, 1);
        if (lua_type(L, -1) == LUA_TNUMBER) {
            const double position = lua_tonumber(L, -1);
            const int integer = static_cast<int>(lua_tointeger(L, -1));
            if (position == integer && integer > 0) {
                last = std::max(last, integer);
                continue;
            }
        }
        if (lua_type(L, -1) != LUA_TSTRING ||
            std::find(kKeys.begin(), kKeys.end(), call.TextView(lua_gettop(L), "")) ==
                kKeys.end()) {
            call.Raise(luaL_tolstring(L, -1, nullptr), "is unknown");
        }
    }
    return last;
}

std::vector<std::string> CheckArguments(const LuaCall& call, int table, int last) {
    std::vector<std::string> arguments;
    arguments.reserve(lua_rawlen(call.L, table));
    for (int i = 1; i <= std::max(last, 1); ++i) {
        lua_rawgeti(call.L, table, i);
        const std::string name = "argv[" + std::to_string(i) + "]";
        arguments.push_back(CheckWithoutNull(call, lua_gettop(call.L), name.c_str()));
        lua_pop(call.L, 1);
    }
    if (arguments.front().empty()) {
        call.Raise("argv[1]", "must name a program");
    }
    return arguments;
}

std::vector<std::string> CheckEnvironment(const LuaCall& call, int table) {
    lua_State* L = call.L;
    if (!lua_istable(L, table)) {
        call.RaiseType(table, "env", "a table");
    }
    std::vector<std::string> variables;
    lua_pushnil(L);
    while (lua_next(L, table) != 0) {
        const int value = lua_gettop(L);
        std::string variable = CheckWithoutNull(call, value - 1, "env");
        if (variable.empty() || variable.find('=') != std::string::npos) {
            call.Raise("env", "must have names that are not empty and without '='");
        }
        const std::string name = "env." + variable;
        variable += '=';
        variable += CheckWithoutNull(call, value, name.c_str());
        variables.push_back(std::move(variable));
        lua_pop(L, 1);
    }
    return variables;
}

// Pushes the option. Whether it is there.
bool PushOption(lua_State* L, int table, const char* name) {
    lua_pushstring(L, name);
    lua_rawget(L, table);
    return !lua_isnil(L, -1);
}

}  // namespace

ProcessOptions CheckProcessOptions(const LuaCall& call, int index) {
    lua_State* L = call.L;
    if (!lua_istable(L, index)) {
        call.RaiseType(index, "options", "a table");
    }
    ProcessOptions options;
    options.start.isSearched = true;
    options.start.hasOwnGroup = true;
    options.start.arguments = CheckArguments(call, index, CheckKeys(call, index));
    if (PushOption(L, index, "timeout")) {
        options.timeout = CheckNotNegative(call, lua_gettop(L), "timeout");
    }
    if (PushOption(L, index, "limit")) {
        options.start.outputLimit =
            static_cast<std::size_t>(CheckNotNegative(call, lua_gettop(L), "limit"));
    }
    if (PushOption(L, index, "input")) {
        options.start.input = call.Text(lua_gettop(L), "input");
    }
    if (PushOption(L, index, "env")) {
        options.start.environment = CheckEnvironment(call, lua_gettop(L));
    }
    if (PushOption(L, index, "cwd")) {
        options.folder = CheckWithoutNull(call, lua_gettop(L), "cwd");
    }
    lua_settop(L, index);
    return options;
}

}  // namespace ZelkaCore
