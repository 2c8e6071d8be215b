#include "zelka_core/lua/lua_interpreter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <wx/mstream.h>
#include <wx/sstream.h>

#include <stdexcept>
#include <thread>

#include "zelka_core/lua/lua_patch.h"

namespace ZelkaCore {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr std::chrono::seconds kGenerous{60};

class LuaInterpreterTest : public testing::Test {
  protected:
    int Run(const char* text, int results = 1, wxOutputStream* output = nullptr) {
        wxStringInputStream chunk(wxString::FromUTF8(text));
        return interpreter.RunScript(chunk, 0, results, "chunk", output);
    }
    std::string Error() const { return interpreter.GetErrorInfo().utf8_string(); }

    CLuaInterpreter interpreter{false, L"test.lua", true};
    lua_State* const L = interpreter.L();
};

TEST_F(LuaInterpreterTest, LeavesExactlyTheResultsAskedFor) {
    EXPECT_EQ(Run("return 'a', 'b'"), LUA_OK);
    EXPECT_EQ(lua_gettop(L), 1);
    EXPECT_STREQ(lua_tostring(L, -1), "a");
    lua_settop(L, 0);
    EXPECT_EQ(Run("local nothing"), LUA_OK);
    EXPECT_EQ(lua_gettop(L), 1);
    EXPECT_TRUE(lua_isnil(L, -1));
}

TEST_F(LuaInterpreterTest, HandsArgumentsFromTheStackToTheChunk) {
    lua_pushliteral(L, "below");
    lua_pushnumber(L, 2);
    lua_pushnumber(L, 3);
    wxStringInputStream chunk("local a, b = ... return a * b");
    EXPECT_EQ(interpreter.RunScript(chunk, 2, 1, "chunk", nullptr), LUA_OK);
    EXPECT_EQ(lua_gettop(L), 2);
    EXPECT_EQ(lua_tonumber(L, -1), 6);
}

TEST_F(LuaInterpreterTest, AFailureLeavesNothingOnTheStackAndATracebackToRead) {
    lua_pushliteral(L, "below");
    EXPECT_EQ(Run("local function f() error('wrong') end f()"), LUA_ERRRUN);
    EXPECT_EQ(lua_gettop(L), 1);
    EXPECT_THAT(Error(), StartsWith("chunk:1: wrong\nstack traceback:\n"));
    EXPECT_THAT(Error(), HasSubstr("in function 'f'"));
    EXPECT_EQ(Run("return 1"), LUA_OK);
    EXPECT_EQ(Error(), "");
}

TEST_F(LuaInterpreterTest, RefusesPrecompiledChunks) {
    EXPECT_EQ(Run("return string.dump(function() end)"), LUA_OK);
    std::size_t size = 0;
    const char* code = lua_tolstring(L, -1, &size);
    wxMemoryInputStream chunk(code, size);
    EXPECT_EQ(interpreter.RunScript(chunk, 0, 1, "chunk", nullptr), LUA_ERRSYNTAX);
    EXPECT_THAT(Error(), HasSubstr("attempt to load a binary chunk"));
}

TEST_F(LuaInterpreterTest, PrintGoesToTheOutputOfTheRunningChunk) {
    wxStringOutputStream output;
    EXPECT_EQ(Run("print('a', 1, nil) print()", 0, &output), LUA_OK);
    EXPECT_EQ(output.GetString(), "a\t1\tnil\n\n");
}

TEST_F(LuaInterpreterTest, AForeignExceptionFailsTheChunkOnly) {
    lua_pushcfunction(L, [](lua_State*) -> int { throw std::runtime_error("foreign"); });
    lua_setglobal(L, "throw");
    EXPECT_EQ(Run("throw()"), -1);
    EXPECT_THAT(Error(), HasSubstr("C++ exception"));
    EXPECT_EQ(Run("return 1"), LUA_OK);
}

// Every allocation of a chunk fails once: each time the chunk fails, and the state stays usable.
TEST_F(LuaInterpreterTest, AnyAllocationMayFail) {
    const auto used = [this] {
        return static_cast<std::uint64_t>(lua_gc(L, LUA_GCCOUNT, 0)) * 1024 +
               static_cast<std::uint64_t>(lua_gc(L, LUA_GCCOUNTB, 0));
    };
    int failures = 0;
    int status = LUA_ERRMEM;
    for (std::uint64_t room = 0; status != LUA_OK; room += 64) {
        lua_gc(L, LUA_GCCOLLECT, 0);
        interpreter.SetMemoryLimit(used() + room);
        status = Run("local t = {} for i = 1, 20 do t[i] = ('x'):rep(i) .. i end return #t");
        failures += status == LUA_OK ? 0 : 1;
        ASSERT_TRUE(status == LUA_OK || status == LUA_ERRMEM) << Error();
    }
    EXPECT_GT(failures, 10);
    EXPECT_EQ(lua_tonumber(L, -1), 20);
}

TEST_F(LuaInterpreterTest, WorkOfAnotherThreadRunsInsideABusyScript) {
    (void)LuaPatchForWin::LuaPatch(L);
    for (const char* busy :
         {"while not done do end", "coroutine.wrap(function() while not done do end end)()"}) {
        lua_pushnil(L);
        lua_setglobal(L, "done");
        std::thread script([&] { EXPECT_EQ(Run(busy, 0), LUA_OK) << Error(); });
        const bool served = interpreter.Lock().Run(
            [](lua_State* running) {
                lua_pushboolean(running, 1);
                lua_setglobal(running, "done");
            },
            kGenerous);
        EXPECT_TRUE(served);
        script.join();
    }
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
    std::thread other([&] { EXPECT_TRUE(lock.Run([](lua_State*) {}, kGenerous)); });
    other.join();
}

TEST_F(LuaInterpreterTest, CoroutinesBehaveAsEverUnderThePatch) {
    (void)LuaPatchForWin::LuaPatch(L);
    EXPECT_EQ(Run(R"(
        local next = coroutine.wrap(function(a) for i = a, 3 do coroutine.yield(i, -i) end end)
        assert(select("#", next(2)) == 2 and next() == 3 and next() == nil)
        local ok, message = pcall(next)
        assert(not ok and message:find("cannot resume dead coroutine"))
        local failing = coroutine.wrap(function() error({ code = 5 }) end)
        ok, message = pcall(failing)
        assert(not ok and message.code == 5)
        local thread = coroutine.create(function(...) return select("#", ...) end)
        assert(select(2, coroutine.resume(thread, nil, nil)) == 2)
        assert(not pcall(coroutine.create, 5))
        assert(os.setlocale() == "C" and os.setlocale("de_DE") == nil)
    )"),
              LUA_OK)
        << Error();
}

}  // namespace
}  // namespace ZelkaCore
