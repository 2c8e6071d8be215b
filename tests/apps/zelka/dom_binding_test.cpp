#include "apps/zelka/script/dom_binding.h"

#include <gtest/gtest.h>

#include "slb3/slb3.h"
#include "zelka_core/lua/dom_lua.h"
#include "zelka_core/lua/lua_interpreter.h"

namespace {

using SLB3::internal::UserdataRecord;
using ZelkaCore::CDom;

class WatchedDom : public CDom {
  public:
    explicit WatchedDom(bool& destroyed) : m_destroyed(destroyed) {}
    ~WatchedDom() override { m_destroyed = true; }

  private:
    bool& m_destroyed;
};

TEST(DomBinding, CollectingLeavesTheStoreAloneUnlessTheUserdataOwnsIt) {
    ZelkaCore::CLuaInterpreter interpreter(false, L"test.lua", true);
    lua_State* const L = interpreter.L();
    lua_pushnumber(L, 5);  // what a script may do to the registry
    lua_setfield(L, LUA_REGISTRYINDEX, ZelkaCore::kDomClass);
    bool isDestroyed = false;
    auto* const watched = new WatchedDom(isDestroyed);
    for (const bool isOwned : {false, true}) {
        PushDom(L, watched);
        auto* record = static_cast<UserdataRecord*>(lua_touserdata(L, -1));
        EXPECT_EQ(record->flags, SLB3::internal::kPointerInPayload);
        if (isOwned) {
            record->flags |= SLB3::internal::kDeleted << 2U;
        }
        lua_settop(L, 0);
        lua_gc(L, LUA_GCCOLLECT, 0);
        EXPECT_EQ(isDestroyed, isOwned);
    }
}

}  // namespace
