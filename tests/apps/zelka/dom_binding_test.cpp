#include "apps/zelka/script/dom_binding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <wx/sstream.h>

#include <algorithm>
#include <memory>
#include <thread>

#include "slb3/slb3.h"
#include "tests/support/captured_log.h"
#include "zelka_core/lua/dom_lua.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/lua_patch.h"

namespace {

using SLB3::internal::UserdataRecord;
using testing::HasSubstr;
using testing::Not;
using ZelkaCore::CDom;
using ZelkaCore::CLuaInterpreter;

class DomBindingTest : public testing::Test {
  protected:
    DomBindingTest() {
        PushDom(L, dom.get());
        lua_setglobal(L, "dom");
    }

    int Run(const char* text) {
        wxStringInputStream chunk(wxString::FromUTF8(text));
        return interpreter.RunScript(chunk, 0, 0, "chunk", nullptr);
    }

    const std::unique_ptr<CDom> dom{CDom::New(nullptr, nullptr, nullptr, false)};
    CLuaInterpreter interpreter{false, L"test.lua", true};
    lua_State* const L = interpreter.L();
};

TEST_F(DomBindingTest, EveryPushIsANewUserdataOfOneClass) {
    PushDom(L, dom.get());
    lua_getglobal(L, "dom");
    EXPECT_FALSE(lua_rawequal(L, -1, -2));
    lua_getmetatable(L, -1);
    lua_getmetatable(L, -3);
    EXPECT_TRUE(lua_rawequal(L, -1, -2));
    EXPECT_EQ(static_cast<UserdataRecord*>(lua_touserdata(L, 1))->flags, 2U);
    PushDom(L, nullptr);
    EXPECT_TRUE(lua_isnil(L, -1));
}

TEST_F(DomBindingTest, CollectingLeavesTheStoreAloneUnlessTheUserdataOwnsIt) {
    EXPECT_EQ(Run("dom = nil collectgarbage() collectgarbage()"), LUA_OK);
    EXPECT_TRUE(dom->Set("alive", true));

    bool gone = false;
    class Watched : public CDom {
      public:
        explicit Watched(bool& destroyed) : m_destroyed(destroyed) {}
        ~Watched() override { m_destroyed = true; }

      private:
        bool& m_destroyed;
    };
    PushDom(L, new Watched(gone));
    static_cast<UserdataRecord*>(lua_touserdata(L, -1))->flags =
        SLB3::internal::kPointerInPayload | SLB3::internal::kDeleted << 2U;
    lua_settop(L, 0);
    EXPECT_EQ(Run("collectgarbage()"), LUA_OK);
    EXPECT_TRUE(gone);
    lua_pushcfunction(L, DomUserdataGc);  // on anything else it does nothing
    lua_pushnumber(L, 5);
    EXPECT_EQ(lua_pcall(L, 1, 0, 0), LUA_OK);
}

TEST_F(DomBindingTest, MembersCannotBeAddedOnceTheClassIsDefined) {
    lua_pushcfunction(L, [](lua_State* state) {
        luaL_getmetatable(state, ZelkaCore::kDomClass);
        const SLB3::Namespace members(state, ZelkaCore::kDomClass);
        SLB3::internal::AddMember(state, members, lua_gettop(state), "Late", nullptr);
        return 0;
    });
    EXPECT_EQ(lua_pcall(L, 0, 0, 0), LUA_ERRRUN);
    EXPECT_THAT(lua_tostring(L, -1), HasSubstr("'Late' added outside its class's definition"));
}

// What DumpAllLua writes while a script loops on another thread, in one of its forms.
class DumpTest : public DomBindingTest {
  protected:
    enum class Form { kBrief = 1, kStack = 4, kFull = 5 };

    std::string DumpWhileLooping(Form form) {
        (void)ZelkaCore::LuaPatchForWin::LuaPatch(L);
        std::thread thread([&] { EXPECT_EQ(Run(kLoop), LUA_OK) << interpreter.GetErrorInfo(); });
        (void)ZelkaCore::CConditionObserver(dom->Conditions()).Wait({"looping"}, kGenerousMs);
        std::string text;
        EXPECT_TRUE(interpreter.Lock().Run([&](lua_State* state) { text = Dump(state, form); },
                                           std::chrono::milliseconds(kGenerousMs)));
        dom->Set("done", true);
        thread.join();
        return text;
    }

  private:
    static constexpr DWORD kGenerousMs = 60'000;
    static constexpr const char* kLoop = R"(
        local password, visible = "hidden1", "shown"
        local function spin()
            local depth = 2
            dom:ConditionRaise("looping")
            while not dom:Get("done") do end
        end
        coroutine.wrap(function() spin() end)()
    )";

    std::string Dump(lua_State* state, Form form) const {
        const CapturedLog log;  // of the thread that the work runs on
        lua_pushcfunction(state, CDom::DumpAllLua);
        PushDom(state, dom.get());
        if (form != Form::kBrief) {
            lua_pushnil(state);
            lua_pushboolean(state, form == Form::kFull);
            lua_pushboolean(state, 1);
        }
        if (form == Form::kFull) {
            lua_pushboolean(state, 1);
        }
        EXPECT_EQ(lua_pcall(state, static_cast<int>(form), 0, 0), LUA_OK);
        return log.Text();
    }
};

TEST_F(DumpTest, BriefIsOneLineAThread) {
    const std::string text = DumpWhileLooping(Form::kBrief);
    EXPECT_THAT(text, HasSubstr("Lua thread main: normal at chunk:8\n"));
    EXPECT_THAT(text, HasSubstr(": running at chunk:6\n"));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}

TEST_F(DumpTest, StackShowsWhereACoroutineLoops) {
    const std::string text = DumpWhileLooping(Form::kStack);
    EXPECT_THAT(text, HasSubstr("chunk:6: in function 'spin'"));
    EXPECT_THAT(text, Not(HasSubstr("locals")));
}

TEST_F(DumpTest, FullShowsLocalsAndVariablesAndMasksSecrets) {
    dom->Set("app.Password", "hidden2");
    dom->Set("app.name", "test");
    const std::string text = DumpWhileLooping(Form::kFull);
    EXPECT_THAT(text, HasSubstr("depth = 2"));
    EXPECT_THAT(text, HasSubstr("visible = \"shown\""));
    EXPECT_THAT(text, HasSubstr("password = ***"));
    EXPECT_THAT(text, HasSubstr("app.name = test"));
    EXPECT_THAT(text, HasSubstr("app.Password = ***"));
    EXPECT_THAT(text, Not(HasSubstr("hidden")));
}

}  // namespace
