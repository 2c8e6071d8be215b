#pragma once

#include <lua.hpp>

#include <cstdint>

// SLB3 shows a native class to Lua: a metatable under the class's name in the Lua registry, a
// namespace table with its members, and userdata whose record says what they hold and who owns it.
//
//     luaL_newmetatable(L, "My.Class");
//     const int index = lua_gettop(L);
//     SLB3::Namespace members(L, "My.Class");
//     SLB3::internal::OnClassDefinitionBegins(L, index);
//     SLB3::internal::RegisterInfoClass(L, index, &info);
//     SLB3::internal::Class<MyClass> definition(L, members, index);
//     SLB3::Wrapper<MyClass>::Register(definition);
//     SLB3::internal::OnClassDefinitionEnds(L, index);
//
// Everything here is for the thread that holds the Lua state, and raises Lua errors.

namespace SLB3 {

// What the binder knows of a class. The object has to outlive every Lua state it is registered in.
class BaseInfo {
  public:
    virtual ~BaseInfo() = default;
    [[nodiscard]] virtual int Kind()
        const = 0;  // 3: a native class that Lua code does not derive from
    [[nodiscard]] virtual const char* Name() const = 0;
    [[nodiscard]] virtual int ParentCount() const = 0;
    [[nodiscard]] virtual int ConstructorCount() const = 0;
    [[nodiscard]] virtual int StaticCount() const = 0;
};

// A table that stays in a Lua state as long as anything there refers to it.
class Table {
  public:
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;

    void push(lua_State* L) const;

  protected:
    Table(lua_State* L, const char* name);
    ~Table();

  private:
    lua_State* m_L;
    int m_reference = LUA_NOREF;
};

// The members of one class.
class Namespace : public Table {
  public:
    Namespace(lua_State* L, const char* name) : Table(L, name) {}
};

namespace internal {

// A parent class and the conversion to it. An array of them ends with a null name.
struct ParentRef {
    const char* name;
    void* (*convert)(void*);
};

enum StorageKind : std::uint32_t {
    kNoObject = 0,
    kObjectInPayload = 1,
    kPointerInPayload = 2,
    kConstPointerInPayload = 3,
};

enum OwnershipMode : std::uint32_t {
    kNotOwned = 0,
    kDestroyed = 2,  // the destructor runs, the memory is not freed
    kDeleted = 4,
};

struct UserdataRecord;

// What an accessor is handed: the record and the address of its payload.
struct UserdataParts {
    const UserdataRecord* record;
    void* payload;
};

// The record at the start of every userdata of the binder.
struct UserdataRecord {
    std::uint32_t flags;  // bits 0 and 1: StorageKind; from bit 2 up: OwnershipMode
    std::uint32_t unused;
    const char* className;
    void* (*accessor)(const UserdataParts&);  // the object, or null
    const ParentRef* parents;
    void* payload;

    [[nodiscard]] std::uint32_t Storage() const { return flags & 3U; }
    [[nodiscard]] std::uint32_t Ownership() const { return flags >> 2U; }
};
static_assert(sizeof(UserdataRecord) == 40, "Lua scripts' userdata have this layout");

// The object of a userdata of class `className` at argument `index`; raises a Lua error that names
// `function` if there is anything else, or a userdata without an object.
void* CheckObject(lua_State* L, int index, const char* className, const char* function);

// Opens and closes the definition of the class whose metatable stands at the absolute `index`.
// A class is defined once in a Lua state, and members can be added only in between.
void OnClassDefinitionBegins(lua_State* L, int index);
void OnClassDefinitionEnds(lua_State* L, int index);

// Attaches what the binder knows of the class to it.
void RegisterInfoClass(lua_State* L, int index, const BaseInfo* info);

// The parents of the class of that name, ended by an entry with a null name; never null.
const ParentRef* GetParentsConversionArray(lua_State* L, const char* className);

// Adds `function` as `name` to the members; an error outside the class's definition.
void AddMember(lua_State* L, const Table& members, int index, const char* name,
               lua_CFunction function);

// The class being defined: its members and the absolute index of its metatable.
template <class T>
class Class {
  public:
    Class(lua_State* L, const Namespace& members, int index)
        : m_L(L), m_members(members), m_index(index) {}

    Class& Member(const char* name, lua_CFunction function) {
        AddMember(m_L, m_members, m_index, name, function);
        return *this;
    }

  private:
    lua_State* m_L;
    const Namespace& m_members;
    int m_index;
};

}  // namespace internal

// Defines the members of T; specialised by whoever shows T to Lua.
template <class T>
struct Wrapper;

}  // namespace SLB3
