#include "zelka_core/lua/lua_archive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <lua.hpp>
#include <memory>

#include "tests/support/scratch_folder.h"
#include "tests/support/zip_builder.h"
#include "zelka_core/text.h"

namespace fs = std::filesystem;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace ZelkaCore {
namespace {

// Modules in two archives, one.zke before two.zke, ahead of files in `require`'s search.
class ArchiveSearcher : public testing::Test {
  protected:
    void SetArchives(const std::string& one, const std::string& two) {
        std::vector<wxString> paths;
        paths.push_back(FromUtf8(m_scratch.Write("one.zke", one).string()));
        paths.push_back(FromUtf8(m_scratch.Write("two.zke", two).string()));
        m_state.reset(luaL_newstate());
        luaL_openlibs(L());
        EXPECT_EQ(PushArchiveSearcher(L(), paths), 1);
        lua_setglobal(L(), "searcher");
        EXPECT_EQ(Run("table.insert(package.searchers, 2, searcher)"), "nil");
        EXPECT_EQ(lua_gettop(L()), 0);
    }

    // What the code returns, or the error, as text.
    std::string Run(const std::string& code) {
        (void)(luaL_loadstring(L(), code.c_str()) || lua_pcall(L(), 0, 1, 0));
        std::string result = luaL_tolstring(L(), -1, nullptr);
        lua_settop(L(), 0);
        return result;
    }

    [[nodiscard]] std::string Path(const std::string& name) const {
        return (m_scratch.Path() / name).string();
    }

    [[nodiscard]] lua_State* L() const { return m_state.get(); }

  private:
    struct Closer {
        void operator()(lua_State* state) const { lua_close(state); }
    };

    const ScratchFolder m_scratch;
    std::unique_ptr<lua_State, Closer> m_state;
};

ZipBuilderEntry Other() {
    return {.name = "other.lua", .content = "return 'other'"};
}

TEST_F(ArchiveSearcher, FindsModulesInTheOrderOfArchivesAndOfNamesWithinOne) {
    SetArchives(BuildZip({{.name = "a/init.lua", .content = "return 'one a init'"},
                          {.name = "a/b.lua", .content = "return 'one a.b'"}}),
                BuildZip({{.name = "a.lua", .content = "return 'two a'"},
                          {.name = "a/b/init.lua", .content = "return 'two a.b'"},
                          {.name = "c/d/init.lua", .content = "return 'two c.d'"},
                          {.name = "c/d.lua", .content = "return 'two c/d'", .stored = true}}));
    EXPECT_EQ(Run("return require 'a'"), "one a init");
    EXPECT_EQ(Run("return require 'a.b'"), "one a.b");
    EXPECT_EQ(Run("return require 'c.d'"), "two c/d");
}

TEST_F(ArchiveSearcher, NamesChunkAndLoaderArgumentAfterArchiveAndEntry) {
    SetArchives(
        BuildZip({{.name = "a/b.lua",
                   .content = "\xef\xbb\xbf#!lua\nreturn debug.getinfo(1,'S').source"
                              " .. debug.getinfo(1,'l').currentline .. ' ' .. select(2, ...)"}}),
        BuildZip({}));
    const std::string file = Path("one.zke/a/b.lua");
    EXPECT_EQ(Run("return require 'a.b'"), "@" + file + "2 " + file);
}

TEST_F(ArchiveSearcher, TellsEveryPlaceWhenThereIsNoSuchModule) {
    SetArchives(BuildZip({Other()}), BuildZip({}));
    EXPECT_THAT(
        Run("package.path, package.cpath = 'last', '' return require 'x.y'"),
        EndsWith("module 'x.y' not found:\n\tno field package.preload['x.y']"
                 "\n\tno file '" +
                 Path("one.zke/x/y.lua") + "'" + "\n\tno file '" + Path("one.zke/x/y/init.lua") +
                 "'" + "\n\tno file '" + Path("two.zke/x/y.lua") + "'" + "\n\tno file '" +
                 Path("two.zke/x/y/init.lua") + "'" + "\n\tno file 'last'"));
}

TEST_F(ArchiveSearcher, RaisesAClearErrorForABadEntryAndStillLoadsTheOthers) {
    const std::string archive =
        BuildZip({Other(),
                  {.name = "syntax.lua", .content = "return ="},
                  {.name = "binary.lua", .content = "\x1bLua"},
                  {.name = "crc.lua", .content = "return 'CONTENT'", .stored = true},
                  {.name = "link.lua", .content = "other.lua", .mode = 0120777},
                  {.name = "secret.lua", .content = "return 1", .encrypted = true}});
    SetArchives(Patch(archive, "CONTENT", "CONTEXT"), BuildZip({}));
    const auto expectError = [&](const std::string& module, const std::string& reason) {
        EXPECT_THAT(Run("return require '" + module + "'"),
                    AllOf(StartsWith("error loading module '" + module + "'"),
                          HasSubstr(Path("one.zke/" + module + ".lua")), HasSubstr(reason)));
    };
    expectError("syntax", ":1: unexpected symbol");
    expectError("binary", "attempt to load a binary chunk");
    expectError("crc", "CRC");
    expectError("link", "symbolic link");
    expectError("secret", "encrypted");
    EXPECT_EQ(Run("return require 'other'"), "other");
}

TEST_F(ArchiveSearcher, DamagedArchiveIsAnErrorOnlyForWhatIsNotFoundBeforeIt) {
    const std::string archive =
        BuildZip({{.name = "twin.lua", .content = "1"}, {.name = "more.lua", .content = "2"}});
    for (const std::string& bad : {std::string(), archive.substr(0, archive.size() - 1),
                                   Patch(archive, "more.lua", "twin.lua")}) {
        SetArchives(BuildZip({Other()}), bad);
        EXPECT_EQ(Run("return require 'other'"), "other");
        EXPECT_THAT(Run("return require 'x'"), HasSubstr(Path("two.zke")));
    }
}

TEST_F(ArchiveSearcher, KeepsTheArchiveThatItHasOpenedAndClosesItWithTheState) {
    const auto openFiles = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = openFiles();
    SetArchives(BuildZip({Other(), {.name = "b.lua", .content = "return 'old'"}}), BuildZip({}));
    EXPECT_EQ(openFiles(), before) << "nothing is opened before it is needed";
    EXPECT_EQ(Run("return require 'other'"), "other");
    EXPECT_EQ(openFiles(), before + 1);
    fs::remove(Path("one.zke"));
    EXPECT_EQ(Run("return require 'b'"), "old");
    SetArchives(BuildZip({}), BuildZip({}));
    EXPECT_EQ(openFiles(), before);
    EXPECT_THAT(Run("local f = searcher local _, u = debug.getupvalue(f, 1)"
                    " debug.getmetatable(u).__gc(u) return f 'a'"),
                HasSubstr("closed"));
}

}  // namespace
}  // namespace ZelkaCore
