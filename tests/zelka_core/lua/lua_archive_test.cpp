#include "zelka_core/lua/lua_archive.h"

#include <gmock/gmock.h>

#include <lua.hpp>
#include <memory>
#include <utility>

#include "tests/support/captured_log.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/zip_builder.h"
#include "zelka_core/text.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace ZelkaCore {
namespace {

// Modules in two archives, one.zke before two.zke, ahead of files in `require`'s search.
class ArchiveSearcher : public testing::Test {
  protected:
    void SetArchives(const std::string& one, const std::string& two = BuildZip({})) {
        const std::vector<wxString> paths{FromUtf8(m_scratch.Write("one.zke", one).string()),
                                          FromUtf8(m_scratch.Write("two.zke", two).string())};
        m_state.reset(luaL_newstate());
        luaL_openlibs(m_state.get());
        EXPECT_EQ(PushArchiveSearcher(m_state.get(), paths), 1);
        lua_setglobal(m_state.get(), "searcher");
        EXPECT_EQ(Run("table.insert(package.searchers, 2, searcher)"), "nil");
    }

    // What the code returns, or the error, as text.
    std::string Run(const std::string& code) {
        lua_State* const L = m_state.get();
        (void)(luaL_loadstring(L, code.c_str()) || lua_pcall(L, 0, 1, 0));
        std::string result = luaL_tolstring(L, -1, nullptr);
        lua_settop(L, 0);
        return result;
    }

    std::string Require(const std::string& module) {
        return Run("return require '" + module + "'");
    }

    [[nodiscard]] std::string Path(const std::string& name) const {
        return (m_scratch.Path() / name).string();
    }

  private:
    const ScratchFolder m_scratch;
    std::unique_ptr<lua_State, decltype(&lua_close)> m_state{nullptr, &lua_close};
};

ZipBuilderEntry Other() {
    return {.name = "other.lua", .content = "return 'other'"};
}

TEST_F(ArchiveSearcher, FindsModulesInTheOrderOfArchivesAndOfNamesWithinOneAndTellsWhereItLooked) {
    SetArchives(BuildZip({{.name = "a/init.lua", .content = "return 'one a init'"},
                          {.name = "a/b.lua",
                           .content = "\xef\xbb\xbf#!lua\nreturn debug.getinfo(1,'S').source"
                                      " .. debug.getinfo(1,'l').currentline .. select(2, ...)"}}),
                BuildZip({{.name = "a.lua", .content = "return 'two a'"},
                          {.name = "a/b/init.lua", .content = "return 'two a.b'"},
                          {.name = "c/d/init.lua", .content = "return 'two c.d'"},
                          {.name = "c/d.lua", .content = "return 'two c/d'", .stored = true}}));
    EXPECT_EQ(Require("a"), "one a init");
    const std::string file = Path("one.zke/a/b.lua");
    EXPECT_EQ(Require("a.b"), "@" + file + "2" + file) << "chunk, line and the loader's argument";
    EXPECT_EQ(Require("c.d"), "two c/d");
    EXPECT_THAT(Require("x.y"), HasSubstr("\n\tno file '" + Path("two.zke/x/y/init.lua") + "'"));
}

TEST_F(ArchiveSearcher, RaisesAClearErrorForABadEntryAndStillLoadsTheOthers) {
    const std::string archive =
        BuildZip({Other(),
                  {.name = "syntax.lua", .content = "return ="},
                  {.name = "binary.lua", .content = "\x1bLua"},
                  {.name = "crc.lua", .content = "return 'CONTENT'", .stored = true},
                  {.name = "link.lua", .content = "other.lua", .mode = 0120777}});
    SetArchives(Patch(archive, "CONTENT", "CONTEXT"));
    for (const auto& [module, reason] :
         {std::pair<std::string, const char*>{"syntax", ":1: unexpected symbol"},
          {"binary", "attempt to load a binary chunk"},
          {"crc", "CRC"},
          {"link", "symbolic link"}}) {
        EXPECT_THAT(Require(module),
                    AllOf(HasSubstr("error loading module '" + module + "'"),
                          HasSubstr(Path("one.zke/" + module + ".lua")), HasSubstr(reason)));
    }
    EXPECT_EQ(Require("other"), "other");
}

TEST_F(ArchiveSearcher, ADamagedArchiveIsToldOnceInTheLogAndByWhatIsNotFoundElsewhere) {
    const std::string archive = BuildZip({{.name = "twin.lua"}, {.name = "more.lua"}});
    for (const std::string& bad : {std::string(), archive.substr(0, archive.size() - 1),
                                   Patch(archive, "more.lua", "twin.lua")}) {
        const CapturedLog log;
        SetArchives(bad, BuildZip({Other()}));
        EXPECT_EQ(Require("other"), "other");
        EXPECT_THAT(Require("x"), HasSubstr("\n\tno look into " + Path("one.zke")));
        EXPECT_THAT(log.Text(), MatchesRegex("[^\n]*" + Path("one.zke") + "[^\n]+\n"));
    }
}

TEST_F(ArchiveSearcher, KeepsTheArchiveThatItHasOpenedAndClosesItWithTheState) {
    const auto openFiles = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = openFiles();
    SetArchives(BuildZip({Other(), {.name = "b.lua", .content = "return 'old'"}}));
    EXPECT_EQ(Require("other"), "other");
    fs::remove(Path("one.zke"));
    EXPECT_EQ(Require("b"), "old");
    EXPECT_EQ(openFiles(), before + 1);
    SetArchives(BuildZip({}));
    EXPECT_EQ(openFiles(), before);
    EXPECT_THAT(Run("debug.setupvalue(searcher, 1, nil) return searcher 'a'"), HasSubstr("closed"));
}

}  // namespace
}  // namespace ZelkaCore
