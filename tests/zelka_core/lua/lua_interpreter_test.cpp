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
    int Run(const char* text) {
        wxStringInputStream chunk(text);
        return interpreter.RunScript(chunk, 0, 0, "chunk", nullptr);
    }
    std::string Error() const { return interpreter.GetErrorInfo().utf8_string(); }

    CLuaInterpreter interpreter{false, L"test.lua", true};
    lua_State* const L = interpreter.L();
};

TEST_F(LuaInterpreterTest, AFailureLeavesNothingOnTheStackAndItsReasonUntilTheNextRun) {
    lua_pushcfunction(L, [](lua_State*) -> int { throw std::runtime_error("foreign"); });
    lua_setglobal(L, "throw");
    EXPECT_EQ(Run("throw()"), -1);
    EXPECT_THAT(Error(), testing::HasSubstr("C++ exception"));
    EXPECT_EQ(lua_gettop(L), 0);
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
    EXPECT_GT(room, 1500U) << "what the chunk keeps alone is more";
}

TEST_F(LuaInterpreterTest, WorkIsDoneWhenTheLockIsGivenBackOrLaterIfItCannotWait) {
    CLuaStateLock& lock = interpreter.Lock();
    int done = 0;
    const auto run = [&](bool comesToIt, std::chrono::milliseconds patience) {
        EXPECT_EQ(lock.Run([&](lua_State*) { ++done; }, patience), comesToIt);
    };
    const CLuaStateLock::Hold outer(lock);
    std::thread(run, false, std::chrono::milliseconds(1)).join();
    EXPECT_EQ(done, 0);
    (void)CLuaStateLock::Hold(lock);  // ends at once
    EXPECT_EQ(done, 1);
    const CLuaStateLock::Hold inner(lock);
    const CLuaStateLock::GiveBack giveBack(lock);
    std::thread(run, true, std::chrono::seconds(60)).join();
    EXPECT_EQ(done, 2);
}

}  // namespace
}  // namespace ZelkaCore
