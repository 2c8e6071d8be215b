#include "zelka_core/lua/lua_arguments.h"

#include <cmath>
#include <exception>

#include "zelka_core/store/dom.h"

namespace ZelkaCore {

void LuaCall::Raise(const char* argument, const std::string& problem) const {
    luaL_error(L, "%s: argument '%s' %s", m_member, argument, problem.c_str());
    std::terminate();  // luaL_error does not return
}

void LuaCall::RaiseType(int index, const char* argument, const std::string& wanted) const {
    const std::string found =
        lua_isnone(L, index) ? "missing" : std::string("a ") + luaL_typename(L, index);
    Raise(argument, "must be " + wanted + ", but it is " + found);
}

std::string LuaCall::Text(int index, const char* argument) const {
    return std::string(TextView(index, argument));
}

std::string_view LuaCall::TextView(int index, const char* argument) const {
    if (lua_type(L, index) != LUA_TSTRING) {
        RaiseType(index, argument, "a string");
    }
    std::size_t size = 0;
    const char* text = lua_tolstring(L, index, &size);
    return {text, size};
}

std::string LuaCall::Name(int index, const char* argument) const {
    std::string name = Text(index, argument);
    if (name.empty()) {
        Raise(argument, "must not be empty");
    }
    return name;
}

std::string LuaCall::PlainName(int index, const char* argument) const {
    std::string name = Name(index, argument);
    if (!IsPlainName(name)) {
        Raise(argument, "must be a plain name without a folder");
    }
    return name;
}

std::int64_t LuaCall::Integer(int index, const char* argument) const {
    if (lua_type(L, index) != LUA_TNUMBER) {
        RaiseType(index, argument, "an integer");
    }
    const double number = lua_tonumber(L, index);
    constexpr double kBeyond = 9223372036854775808.0;  // 2 to the power of 63
    if (std::floor(number) != number || number < -kBeyond || number >= kBeyond) {
        Raise(argument, std::string("must be an integer of at most 64 bits, but it is ") +
                            lua_tostring(L, index));
    }
    return static_cast<std::int64_t>(number);
}

void PushText(lua_State* L, const std::string& text) {
    lua_pushlstring(L, text.data(), text.size());
}

void PushThread(lua_State* L, lua_State* thread) {
    lua_pushthread(thread);
    lua_xmove(thread, L, 1);
}

void Preload(lua_State* L, const char* module, lua_CFunction open) {
    lua_getglobal(L, "package");
    lua_getfield(L, -1, "preload");
    lua_pushcfunction(L, open);
    lua_setfield(L, -2, module);
    lua_pop(L, 2);
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
