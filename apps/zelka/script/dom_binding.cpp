#include "apps/zelka/script/dom_binding.h"

#include "slb3/slb3.h"
#include "zelka_core/lua/dom_lua.h"

using SLB3::internal::UserdataParts;
using SLB3::internal::UserdataRecord;
using ZelkaCore::CDom;
using ZelkaCore::kDomClass;

namespace {

class DomClassInfo : public SLB3::BaseInfo {
  public:
    [[nodiscard]] int Kind() const override { return 3; }
    [[nodiscard]] const char* Name() const override { return kDomClass; }
    [[nodiscard]] int ParentCount() const override { return 0; }
    [[nodiscard]] int ConstructorCount() const override { return 0; }
    [[nodiscard]] int StaticCount() const override { return 0; }
};

// The accessor in the userdata's record.
void* DomUserdataPointer(const UserdataParts& parts) {
    switch (parts.record->Storage()) {
        case SLB3::internal::kNoObject:
            return nullptr;
        case SLB3::internal::kObjectInPayload:
            return parts.payload;
        default:
            return *static_cast<void**>(parts.payload);
    }
}

// Closes a class's definition when it goes, also when the definition failed.
class DefinitionScope {
  public:
    DefinitionScope(lua_State* L, int index) : m_L(L), m_index(index) {
        SLB3::internal::OnClassDefinitionBegins(L, index);
    }
    ~DefinitionScope() { SLB3::internal::OnClassDefinitionEnds(m_L, m_index); }
    DefinitionScope(const DefinitionScope&) = delete;
    DefinitionScope& operator=(const DefinitionScope&) = delete;

  private:
    lua_State* m_L;
    int m_index;
};

// Defines the class whose new metatable stands on top of the stack.
void DefineDomClass(lua_State* L) {
    static const DomClassInfo info;
    const int metatable = lua_gettop(L);
    const SLB3::Namespace members(L, kDomClass);

    members.push(L);
    lua_setfield(L, metatable, "__index");
    lua_pushstring(L, kDomClass);
    lua_setfield(L, metatable, "__class");
    lua_pushcfunction(L, DomUserdataGc);
    lua_setfield(L, metatable, "__gc");

    members.push(L);
    lua_createtable(L, 0, 0);
    lua_setmetatable(L, -2);
    lua_pop(L, 1);

    const DefinitionScope scope(L, metatable);
    SLB3::internal::RegisterInfoClass(L, metatable, &info);
    SLB3::internal::Class<CDom> definition(L, members, metatable);
    SLB3::Wrapper<CDom>::Register(definition);
}

}  // namespace

void PushDom(lua_State* L, CDom* dom) {
    if (dom == nullptr) {
        lua_pushnil(L);
        return;
    }
    luaL_getmetatable(L, kDomClass);
    if (!lua_istable(L, -1)) {  // a script can put something else into the registry
        lua_pop(L, 1);
        lua_pushnil(L);
        lua_setfield(L, LUA_REGISTRYINDEX, kDomClass);
        (void)luaL_newmetatable(L, kDomClass);
        DefineDomClass(L);
    }
    auto* record = static_cast<UserdataRecord*>(lua_newuserdata(L, sizeof(UserdataRecord)));
    record->flags = SLB3::internal::kPointerInPayload;  // not owned
    record->className = kDomClass;
    record->accessor = DomUserdataPointer;
    record->parents = SLB3::internal::GetParentsConversionArray(L, kDomClass);
    record->payload = dom;
    lua_insert(L, -2);
    lua_setmetatable(L, -2);
}

int DomUserdataGc(lua_State* L) {
    auto* record = static_cast<UserdataRecord*>(luaL_testudata(L, 1, kDomClass));
    if (record == nullptr || lua_rawlen(L, 1) != sizeof(UserdataRecord) ||
        record->accessor != DomUserdataPointer) {
        return 0;  // a script can give the metatable to other userdata
    }
    auto* dom = static_cast<CDom*>(DomUserdataPointer({record, &record->payload}));
    const bool inPayload = record->Storage() == SLB3::internal::kObjectInPayload;
    switch (record->Ownership()) {
        case SLB3::internal::kNotOwned:
            if (inPayload) {
                dom->~CDom();
            }
            break;
        case SLB3::internal::kDestroyed:
            if (dom != nullptr) {
                dom->~CDom();
            }
            break;
        case SLB3::internal::kDeleted:
            delete dom;
            break;
        default:
            break;
    }
    return 0;
}
