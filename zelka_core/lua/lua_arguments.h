#pragma once

#include <cstdint>
#include <lua.hpp>
#include <string>

#include "zelka_core/store/dom.h"

// What the members of `dom` take from Lua and give back. Each check raises a Lua error that names
// the member and the argument: "dom:Get: argument 'name' must be a string, but it is missing".

namespace ZelkaCore {

// The store at argument 1.
CDom& CheckDom(lua_State* L, const char* member);

std::string CheckText(lua_State* L, int index, const char* member, const char* argument);

// A text that is not empty.
std::string CheckName(lua_State* L, int index, const char* member, const char* argument = "name");

// A name that IsPlainName accepts.
std::string CheckPlainName(lua_State* L, int index, const char* member, const char* argument);

// A number without a fraction, of 64 bits with its sign.
std::int64_t CheckInteger(lua_State* L, int index, const char* member, const char* argument);

// Raises the error. `problem` completes the sentence "argument '...' ".
[[noreturn]] void RaiseArgument(lua_State* L, const char* member, const char* argument,
                                const std::string& problem);

// ", but it is missing" or ", but it is a table": what stands at the index.
std::string ButGot(lua_State* L, int index);

void PushText(lua_State* L, const std::string& text);

// Calls a function that may throw; a C++ exception becomes a Lua error with its text.
int CallGuarded(lua_State* L, lua_CFunction function);

template <lua_CFunction function>
int Guarded(lua_State* L) {
    return CallGuarded(L, function);
}

}  // namespace ZelkaCore
