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
    EXPECT_EQ(Run("assert(os.setlocale() == 'C' and os.setlocale('C', 'all') == 'C')"
                  "assert(os.setlocale('de_DE') == nil and not pcall(os.setlocale, 'C', 'x'))"),
              LUA_OK);
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

// The hook of a C module, which a second call takes away again.
int ToggleHook(lua_State* L) {
    const lua_Hook hook = [](lua_State*, lua_Debug*) {};
    (void)lua_sethook(L, lua_gethook(L) == nullptr ? hook : nullptr, LUA_MASKLINE, 0);
    return 0;
}

TEST_F(LuaInterpreterTest, WorkReachesABusyScriptBesideAnyHookAndTheHostsShowsNowhere) {
    std::thread worker;
    lua_pushlightuserdata(L, &worker);
    lua_pushcclosure(
        L,
        [](lua_State* state) {
            *static_cast<std::thread*>(lua_touserdata(state, lua_upvalueindex(1))) =
                std::thread([&lock = CLuaInterpreter::Of(state)->Lock()] {
                    const auto tell = [](lua_State* running) {
                        lua_pushboolean(running, 1);
                        lua_setglobal(running, "told");
                    };
                    EXPECT_TRUE(lock.Run(tell, std::chrono::seconds(60)));
                });
            return 0;
        },
        1);
    lua_setglobal(L, "giveWork");
    lua_register(L, "toggle", ToggleHook);
    for (const std::string hook :
         {"", "debug.sethook(type, 'crl', 3) debug.sethook(nil)", "debug.sethook(f, 'l')",
          "debug.sethook(f, '', 1e6) assert(select(3, debug.gethook()) == 1e6)",
          "debug.sethook(f, 'l') debug.sethook(debug.gethook())", "toggle() toggle()",
          "toggle() assert(debug.gethook() == 'external hook')"}) {
        EXPECT_EQ(Run(("f = function() end told = false coroutine.wrap(function() " + hook +
                       " giveWork() while not told do end end)()")
                          .c_str()),
                  LUA_OK)
            << Error();
        worker.join();
    }
    EXPECT_EQ(Run("local n = 0 debug.sethook(function() n = n + 1 end, '', 5000)"
                  "for i = 1, 1e5 do end debug.sethook() assert(n >= 19 and n <= 21, n)"
                  "assert(debug.gethook() == nil and select(2, debug.gethook()) == '')"),
              LUA_OK)
        << Error();
}

// A finaliser that ran inside of work could give the lock back in the middle of it.
TEST_F(LuaInterpreterTest, InsideWorkNoFinaliserRunsAndTheLockIsKept) {
    ASSERT_EQ(Run("ran = 0 collectgarbage('stop') for i = 1, 100 do"
                  " setmetatable({}, { __gc = function() ran = ran + 1 end }) end"
                  " collectgarbage('restart')"),
              LUA_OK);
    CLuaStateLock& lock = interpreter.Lock();
    interpreter.SetMemoryLimit(static_cast<std::uint64_t>(lua_gc(L, LUA_GCCOUNT, 0)) * 1024);
    std::thread other;
    bool isWorking = true;
    const auto work = [&](lua_State* state) {
        for (int i = 0; i < 10'000; ++i) {
            lua_pushfstring(state, "garbage of the work %d", i);
            lua_pop(state, 1);
        }
        other = std::thread([&] {
            EXPECT_TRUE(
                lock.Run([&](lua_State*) { EXPECT_FALSE(isWorking); }, std::chrono::seconds(60)));
        });
        while (!lock.HasWork()) {
        }
        const CLuaStateLock::GiveBack giveBack(lock, state);
        lua_getglobal(state, "ran");
        EXPECT_EQ(lua_tonumber(state, -1), 0);
        lua_pop(state, 1);
        isWorking = false;
    };
    EXPECT_TRUE(lock.Run(work, std::chrono::seconds(60)));
    other.join();
    interpreter.SetMemoryLimit(UINT64_MAX);
    EXPECT_EQ(Run("collectgarbage() assert(ran == 100 and collectgarbage('isrunning'))"), LUA_OK);
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
    const CLuaStateLock::GiveBack giveBack(lock, L);
    std::thread(run, true, std::chrono::seconds(60)).join();
    EXPECT_EQ(done, 2);
}

}  // namespace
}  // namespace ZelkaCore
