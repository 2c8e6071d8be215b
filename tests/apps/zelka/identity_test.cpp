#include <gtest/gtest.h>

#include "apps/zelka/host/brand.h"
#include "apps/zelka/host/path_templates.h"
#include "apps/zelka/host/program_paths.h"
#include "apps/zelka/script/semicolon_list.h"

namespace {

TEST(BrandRule, TheBeginningOfTheExecutablesNameDecidesAndOnlyABrandsNameFollowsIt) {
    const struct {
        const char *name, *stem, *expectedName, *expectedDisplay, *expectedEffective;
    } cases[] = {
        {"zelk_agent", "morv_agent2", "zelk_agent", "morv_agent", "morv_agent"},
        {"other", "morv", "other", "other", "morv_agent"},
        {"Morv", "Morv", "Morv", "Morv", "zelk_agent"},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(item.stem);
        const Identity identity = ApplyBrandRule(item.name, item.stem);
        EXPECT_EQ(identity.name, item.expectedName);
        EXPECT_EQ(identity.displayName, item.expectedDisplay);
        EXPECT_EQ(identity.effectiveName, item.expectedEffective);
    }
}

TEST(MakerFolder, IsTheParentOnlyBelowTheMakersName) {
    for (const auto& [bin, maker] : std::initializer_list<std::pair<const char*, const char*>>{
             {"/opt/Orvane/Agent", "/opt/Orvane"},
             {"/Orvane/x/Agent", "/Orvane/x"},
             {"/opt/orvane/Agent", "/opt/orvane/Agent"},
             {"/Orvane", "/Orvane"}}) {
        EXPECT_EQ(MakerFolder(wxFileName::DirName(bin)).GetPath(wxPATH_GET_VOLUME), maker);
    }
}

TEST(SearchPaths, TakeANameForEverySignAndHaveNoEmptyEntries) {
    EXPECT_EQ(ExpandPathTemplates("@@;b", "x"), "xx;b");
    std::list<wxString> list{"first"};
    SplitSemicolonList(list, ";;a;;b;");
    SplitSemicolonList(list, "");
    EXPECT_EQ(list, (std::list<wxString>{"first", "a", "b"}));
}

}  // namespace
