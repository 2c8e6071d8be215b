#include "zelka_core/lua/lua_interpreter.h"

#include <gmock/gmock.h>
#include <wx/sstream.h>

#include <stdexcept>
#include <thread>

#include "zelka_core/lua/lua_patch.h"

namespace ZelkaCore {
namespace {

class LuaInterpreterTest : public testing::Test {
  protected:
    int Run(const char* text, int arguments = 0, int results = 0) {
        wxStringInputStream chunk(wxString::FromUTF8(text));
        return interpreter.RunScript(chunk, arguments, results, "chunk", nullptr);
    }
    std::string Error() const { return interpreter.GetErrorInfo().utf8_string(); }

    CLuaInterpreter interpreter{false, L"test.lua", true};
    lua_State* const L = interpreter.L();
};

TEST_F(LuaInterpreterTest, TakesArgumentsFromTheStackAndLeavesExactlyTheResultsAskedFor) {
    lua_pushliteral(L, "below");
    lua_pushnumber(L, 2);
    lua_pushnumber(L, 3);
    EXPECT_EQ(Run("local a, b = ... return a * b, 'not asked for'", 2, 1), LUA_OK);
    EXPECT_EQ(lua_gettop(L), 2);
    EXPECT_EQ(lua_tonumber(L, 2), 6);
}

TEST_F(LuaInterpreterTest, AFailureLeavesNothingOnTheStackAndItsReasonUntilTheNextRun) {
    lua_pushcfunction(L, [](lua_State*) -> int { throw std::runtime_error("foreign"); });
    lua_setglobal(L, "throw");
    lua_pushliteral(L, "below");
    for (const auto& [chunk, expected, reason] :
         {std::tuple{"error('wrong')", LUA_ERRRUN, "chunk:1: wrong\nstack traceback:\n"},
          {"throw()", -1, "C++ exception"},
          {"\x1bLua", LUA_ERRSYNTAX, "attempt to load a binary chunk"}}) {
        EXPECT_EQ(Run(chunk), expected);
        EXPECT_THAT(Error(), testing::HasSubstr(reason));
        EXPECT_EQ(lua_gettop(L), 1);
    }
    EXPECT_EQ(Run(""), LUA_OK);
    EXPECT_EQ(Error(), "");
}

TEST_F(LuaInterpreterTest, NoScriptSetsTheLocale) {
    (void)LuaPatchForWin::LuaPatch(L);
    EXPECT_EQ(Run("assert(os.setlocale() == 'C' and os.setlocale('de_DE') == nil)"), LUA_OK);
}

// Every allocation of a chunk fails once: each time the chunk fails, and the state stays usable.
TEST_F(LuaInterpreterTest, AnyAllocationMayFail) {
    const auto used = [this] {
        return static_cast<std::uint64_t>(lua_gc(L, LUA_GCCOUNT, 0)) * 1024 +
               static_cast<std::uint64_t>(lua_gc(L, LUA_GCCOUNTB, 0));
    };
    std::uint64_t room = 0;
    for (int status = LUA_ERRMEM; status != LUA_OK; room += 64) {
        lua_gc(L, LUA_GCCOLLECT, 0);
        interpreter.SetMemoryLimit(used() + room);
        status = Run("local t = {} for i = 1, 20 do t[i] = ('x'):rep(i) .. i end");
        ASSERT_TRUE(status == LUA_OK || status == LUA_ERRMEM) << Error();
    }
    EXPECT_GT(room, 640U);
}

TEST_F(LuaInterpreterTest, WorkThatCannotWaitLongerRunsLater) {
    CLuaStateLock& lock = interpreter.Lock();
    bool done = false;
    {
        const CLuaStateLock::Hold hold(lock);
        std::thread other([&] {
            EXPECT_FALSE(lock.Run([&](lua_State*) { done = true; }, std::chrono::milliseconds(1)));
        });
        other.join();
        EXPECT_FALSE(done);
    }
    EXPECT_TRUE(done);
}

TEST_F(LuaInterpreterTest, TheLockIsFreeWhileAHolderGivesItBack) {
    CLuaStateLock& lock = interpreter.Lock();
    const CLuaStateLock::Hold outer(lock);
    const CLuaStateLock::Hold inner(lock);
    const CLuaStateLock::GiveBack giveBack(lock);
    std::thread other([&] { EXPECT_TRUE(lock.Run([](lua_State*) {}, std::chrono::seconds(60))); });
    other.join();
}

}  // namespace
}  // namespace ZelkaCore
