#pragma once

#include <lua.hpp>
#include <new>
#include <optional>
#include <utility>

namespace ZelkaCore {

// Objects of one type in userdata of Lua, whose metatable stands in the registry under `kName`. An
// object is destroyed when its userdata is collected; what still comes upon that finds none.
template <class T, const char* kName>
class LuaClass {
  public:
    LuaClass() = delete;

    // Makes an object in a new userdata on top of the stack. May raise a Lua error.
    template <class... Arguments>
    static T& Make(lua_State* L, Arguments&&... arguments) {
        auto* holder = new (lua_newuserdata(L, sizeof(Holder))) Holder;
        PushMetatable(L);
        lua_setmetatable(L, -2);
        return holder->emplace(std::forward<Arguments>(arguments)...);
    }

    // The object that stands there; null if it is something else.
    static T* At(lua_State* L, int index) {
        auto* holder = static_cast<Holder*>(luaL_testudata(L, index, kName));
        return holder != nullptr && holder->has_value() ? &**holder : nullptr;
    }

    // Pushes the metatable, the same each time. Scripts do not get at it. May raise a Lua error.
    static void PushMetatable(lua_State* L) {
        if (luaL_newmetatable(L, kName)) {
            lua_pushcfunction(L, Collect);
            lua_setfield(L, -2, "__gc");
            lua_pushboolean(L, 0);
            lua_setfield(L, -2, "__metatable");
        }
    }

  private:
    using Holder = std::optional<T>;

    static int Collect(lua_State* L) {
        if (auto* holder = static_cast<Holder*>(luaL_testudata(L, 1, kName))) {
            holder->reset();
        }
        return 0;
    }
};

}  // namespace ZelkaCore
