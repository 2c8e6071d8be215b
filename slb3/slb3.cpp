#include "slb3/slb3.h"

namespace SLB3 {

namespace {

// In the Lua registry: metatable -> true while the class is being defined, its BaseInfo afterwards
// stands under the class's name in the second table.
constexpr const char* kOpenDefinitions = "SLB3.open";
constexpr const char* kClasses = "SLB3.classes";

// Pushes registry[table][the value at `index`].
void PushEntry(lua_State* L, const char* table, int index) {
    luaL_getsubtable(L, LUA_REGISTRYINDEX, table);
    lua_pushvalue(L, index);
    lua_rawget(L, -2);
    lua_remove(L, -2);
}

void SetOpen(lua_State* L, int index, bool open) {
    luaL_getsubtable(L, LUA_REGISTRYINDEX, kOpenDefinitions);
    lua_pushvalue(L, index);
    if (open) {
        lua_pushboolean(L, 1);
    } else {
        lua_pushnil(L);
    }
    lua_rawset(L, -3);
    lua_pop(L, 1);
}

}  // namespace

Table::Table(lua_State* L, const char* name) : m_L(L) {
    luaL_getsubtable(L, LUA_REGISTRYINDEX, "SLB3.namespaces");
    luaL_getsubtable(L, -1, name);
    m_reference = luaL_ref(L, LUA_REGISTRYINDEX);
    lua_pop(L, 1);
}

Table::~Table() {
    luaL_unref(m_L, LUA_REGISTRYINDEX, m_reference);
}

void Table::push(lua_State* L) const {
    lua_rawgeti(L, LUA_REGISTRYINDEX, m_reference);
}

namespace internal {

void* CheckObject(lua_State* L, int index, const char* className, const char* function) {
    auto* record = static_cast<UserdataRecord*>(luaL_testudata(L, index, className));
    // A script can give the class's metatable to a userdata that is none of the binder's.
    if (record == nullptr || lua_rawlen(L, index) != sizeof(UserdataRecord)) {
        luaL_error(L, "%s: called on %s, not on a %s (use ':' and not '.')", function,
                   luaL_typename(L, index), className);
        return nullptr;
    }
    void* object =
        record->accessor != nullptr ? record->accessor({record, &record->payload}) : nullptr;
    if (object == nullptr) {
        luaL_error(L, "%s: the %s holds no object", function, className);
    }
    return object;
}

void OnClassDefinitionBegins(lua_State* L, int index) {
    SetOpen(L, index, true);
}

void OnClassDefinitionEnds(lua_State* L, int index) {
    SetOpen(L, index, false);
}

void RegisterInfoClass(lua_State* L, int index, const BaseInfo* info) {
    PushEntry(L, kOpenDefinitions, index);
    if (!lua_toboolean(L, -1)) {
        luaL_error(L, "SLB3: class '%s' is not being defined", info->Name());
    }
    lua_pop(L, 1);
    luaL_getsubtable(L, LUA_REGISTRYINDEX, kClasses);
    lua_pushlightuserdata(L, const_cast<BaseInfo*>(info));
    lua_setfield(L, -2, info->Name());
    lua_pop(L, 1);
}

const ParentRef* GetParentsConversionArray(lua_State*, const char*) {
    // No class of this system has a parent.
    static constexpr ParentRef kNone[] = {{nullptr, nullptr}};
    return kNone;
}

void AddMember(lua_State* L, const Table& members, int index, const char* name,
               lua_CFunction function) {
    PushEntry(L, kOpenDefinitions, index);
    if (!lua_toboolean(L, -1)) {
        luaL_error(L, "SLB3: member '%s' added outside its class's definition", name);
    }
    lua_pop(L, 1);
    members.push(L);
    lua_pushcfunction(L, function);
    lua_setfield(L, -2, name);
    lua_pop(L, 1);
}

}  // namespace internal

}  // namespace SLB3
