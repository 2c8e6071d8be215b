#include <gtest/gtest.h>

#include "apps/zelka/host/brand.h"
#include "apps/zelka/host/path_templates.h"
#include "apps/zelka/host/program_paths.h"
#include "apps/zelka/script/semicolon_list.h"

namespace {

TEST(BrandRule, TheExecutableDecidesAndTheNameFollowsIt) {
    struct Case {
        const char *name, *stem, *expectedName, *expectedDisplay, *expectedEffective;
    };
    for (const Case& c : std::initializer_list<Case>{
             {"morv_agent", "morv_agent", "zelk_agent", "morv_agent", "morv_agent"},
             {"zelk_agent", "morv_agent2", "zelk_agent", "morv_agent", "morv_agent"},
             {"other", "morv", "other", "other", "morv_agent"},
             {"morv_agent", "zelk_agent", "morv_agent", "morv_agent", "zelk_agent"},
             {"Morv", "Morv", "Morv", "Morv", "zelk_agent"}}) {
        const Identity identity = ApplyBrandRule(c.name, c.stem);
        EXPECT_EQ(identity.name, c.expectedName) << c.name << " under " << c.stem;
        EXPECT_EQ(identity.displayName, c.expectedDisplay) << c.name << " under " << c.stem;
        EXPECT_EQ(identity.effectiveName, c.expectedEffective) << c.name << " under " << c.stem;
    }
}

TEST(PathTemplates, AreTheCrossProductWithListEntriesOutermost) {
    EXPECT_EQ(ExpandPathTemplates("a/@.lua;b", "x,y"), "a/x.lua;a/y.lua;b;b");
    EXPECT_EQ(ExpandPathTemplates("@@", "x"), "xx");
    EXPECT_EQ(ExpandPathTemplates("a/@.lua;b", ""), "a/@.lua;b");
    EXPECT_EQ(ExpandPathTemplates("", "x"), "");
}

TEST(MakerFolder, IsTheParentOnlyBelowTheMakersName) {
    const auto maker = [](const char* bin) {
        return MakerFolder(wxFileName::DirName(bin)).GetPath(wxPATH_GET_VOLUME);
    };
    EXPECT_EQ(maker("/opt/Orvane/Agent"), "/opt/Orvane");
    EXPECT_EQ(maker("/Orvane/x/Agent"), "/Orvane/x");
    EXPECT_EQ(maker("/opt/orvane/Agent"), "/opt/orvane/Agent");
    EXPECT_EQ(maker("/Orvane"), "/Orvane");
}

TEST(SemicolonList, HoldsNoEmptyEntries) {
    std::list<wxString> list{"first"};
    SplitSemicolonList(list, ";;a;;b;");
    SplitSemicolonList(list, "");
    EXPECT_EQ(list, (std::list<wxString>{"first", "a", "b"}));
}

}  // namespace
