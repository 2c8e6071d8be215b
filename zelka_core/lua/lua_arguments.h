#pragma once

#include <cstdint>
#include <lua.hpp>
#include <string>
#include <string_view>

namespace ZelkaCore {

// One call of a member from Lua, and what it takes. Each check raises a Lua error that names the
// member and the argument: "dom:Get: argument 'name' must be a string, but it is missing".
class LuaCall {
  public:
    // `member` is the name with that of its object, "dom:Get", and outlives the call.
    LuaCall(lua_State* state, const char* member) : L(state), m_member(member) {}

    lua_State* const L;

    [[nodiscard]] const char* Member() const { return m_member; }
    [[nodiscard]] bool IsGiven(int index) const { return !lua_isnoneornil(L, index); }

    [[nodiscard]] std::string Text(int index, const char* argument) const;
    [[nodiscard]] std::string_view TextView(int index, const char* argument) const;

    // A text that is not empty.
    [[nodiscard]] std::string Name(int index, const char* argument = "name") const;

    // A name that IsPlainName accepts.
    [[nodiscard]] std::string PlainName(int index, const char* argument) const;

    // A number without a fraction, of 64 bits with its sign.
    [[nodiscard]] std::int64_t Integer(int index, const char* argument) const;

    // Raises the error. `problem` completes the sentence "argument '...' ".
    [[noreturn]] void Raise(const char* argument, const std::string& problem) const;

    // Raises it for an argument of another type: "must be ..., but it is a table", or missing.
    [[noreturn]] void RaiseType(int index, const char* argument, const std::string& wanted) const;

  private:
    const char* const m_member;
};

void PushText(lua_State* L, const std::string& text);

// Pushes a Lua thread onto the stack of another. Takes one place on its own stack meanwhile.
void PushThread(lua_State* L, lua_State* thread);

// Has `require` of that name open a module by `open`. May raise a Lua error.
void Preload(lua_State* L, const char* module, lua_CFunction open);

// Calls a function that may throw; a C++ exception becomes a Lua error with its text.
int CallGuarded(lua_State* L, lua_CFunction function);

}  // namespace ZelkaCore
