#include "zelka_core/lua/lua_arguments.h"

#include <cmath>
#include <exception>

#include "slb3/slb3.h"
#include "zelka_core/lua/dom_lua.h"

namespace ZelkaCore {

void RaiseArgument(lua_State* L, const char* member, const char* argument,
                   const std::string& problem) {
    luaL_error(L, "dom:%s: argument '%s' %s", member, argument, problem.c_str());
    std::terminate();  // luaL_error does not return
}

std::string ButGot(lua_State* L, int index) {
    return lua_isnone(L, index) ? ", but it is missing"
                                : std::string(", but it is a ") + luaL_typename(L, index);
}

std::string CheckText(lua_State* L, int index, const char* member, const char* argument) {
    if (lua_type(L, index) != LUA_TSTRING) {
        RaiseArgument(L, member, argument, "must be a string" + ButGot(L, index));
    }
    std::size_t size = 0;
    const char* text = lua_tolstring(L, index, &size);
    return {text, size};
}

std::string CheckName(lua_State* L, int index, const char* member, const char* argument) {
    std::string name = CheckText(L, index, member, argument);
    if (name.empty()) {
        RaiseArgument(L, member, argument, "must not be empty");
    }
    return name;
}

std::int64_t CheckInteger(lua_State* L, int index, const char* member, const char* argument) {
    if (lua_type(L, index) != LUA_TNUMBER) {
        RaiseArgument(L, member, argument, "must be an integer" + ButGot(L, index));
    }
    const double number = lua_tonumber(L, index);
    constexpr double kBeyond = 9223372036854775808.0;  // 2 to the power of 63
    if (std::floor(number) != number || number < -kBeyond || number >= kBeyond) {
        RaiseArgument(L, member, argument,
                      std::string("must be an integer of at most 64 bits, but it is ") +
                          lua_tostring(L, index));
    }
    return static_cast<std::int64_t>(number);
}

void PushText(lua_State* L, const std::string& text) {
    lua_pushlstring(L, text.data(), text.size());
}

std::string CheckPlainName(lua_State* L, int index, const char* member, const char* argument) {
    std::string name = CheckName(L, index, member, argument);
    if (!IsPlainName(name)) {
        RaiseArgument(L, member, argument, "must be a plain name without a folder");
    }
    return name;
}

CDom& CheckDom(lua_State* L, const char* member) {
    const std::string name = std::string("dom:") + member;
    return *static_cast<CDom*>(SLB3::internal::CheckObject(L, 1, kDomClass, name.c_str()));
}

int CallGuarded(lua_State* L, lua_CFunction function) {
    try {
        return function(L);
    } catch (const std::exception& error) {  // Lua's own errors are no std::exception and pass
        lua_pushstring(L, error.what());
    }
    return lua_error(L);
}

}  // namespace ZelkaCore
