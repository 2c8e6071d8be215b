#include "apps/zelka/script/dom_binding.h"

#include <gtest/gtest.h>

#include <memory>

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

class DomBindingTest : public testing::Test {
  protected:
    const std::unique_ptr<CDom> dom{CDom::New(nullptr, nullptr, nullptr, false)};
    ZelkaCore::CLuaInterpreter interpreter{false, L"test.lua", true};
    lua_State* const L = interpreter.L();
};

TEST_F(DomBindingTest, EveryPushIsANewUserdataOfOneClassThatCanBeToldApartFromOthers) {
    PushDom(L, dom.get());
    PushDom(L, dom.get());
    EXPECT_FALSE(lua_rawequal(L, -1, -2));
    lua_getmetatable(L, -1);
    lua_getmetatable(L, -3);
    EXPECT_TRUE(lua_rawequal(L, -1, -2));
    PushDom(L, nullptr);
    EXPECT_TRUE(lua_isnil(L, -1));
    lua_pushcfunction(L, DomUserdataGc);  // on anything else it does nothing
    lua_pushnumber(L, 5);
    EXPECT_EQ(lua_pcall(L, 1, 0, 0), LUA_OK);
}

TEST_F(DomBindingTest, CollectingLeavesTheStoreAloneUnlessTheUserdataOwnsIt) {
    bool isDestroyed = false;
    WatchedDom* const watched = new WatchedDom(isDestroyed);
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
