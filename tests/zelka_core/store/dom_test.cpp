#include "zelka_core/store/dom.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <thread>

#include "zelka_core/log/trace.h"

namespace ZelkaCore {
namespace {

using testing::ElementsAre;

class DomTest : public testing::Test {
  protected:
    const std::unique_ptr<CDom> dom{CDom::New(nullptr, nullptr, nullptr, false)};
};

TEST_F(DomTest, BothNameFamiliesAddressTheSameVariable) {
    const wxString path = wxString::FromUTF8("/opt/\u00e4\u20ac\U0001F600");
    EXPECT_TRUE(dom->SetWx("app.path.bin", path));
    EXPECT_EQ(dom->Get("app.path.bin"), "/opt/\u00e4\u20ac\U0001F600");
    EXPECT_TRUE(dom->Set("app.path.bin", "narrow"));
    EXPECT_EQ(dom->GetWxString("app.path.bin"), "narrow");
}

TEST_F(DomTest, IntegersKeepAll64Bits) {
    for (const std::int64_t value :
         {std::numeric_limits<std::int64_t>::min(), std::int64_t{-1}, (std::int64_t{1} << 53) + 1,
          std::numeric_limits<std::int64_t>::max()}) {
        dom->Set("handle", value);
        EXPECT_EQ(dom->Find("handle"), CDom::Value(value));
        EXPECT_EQ(dom->Get("handle"), std::to_string(value));
    }
}

TEST_F(DomTest, AnAbsentVariableReadsAsEmptyTextAndLeavesABooleanAlone) {
    bool value = true;
    EXPECT_EQ(dom->Get("app.fipsmode"), "");
    EXPECT_FALSE(dom->Get("app.fulldump", value));
    EXPECT_TRUE(value);
    dom->Set("app.fulldump", "1");  // a text is no boolean
    EXPECT_FALSE(dom->Get("app.fulldump", value));
    dom->Set("app.fulldump", false);
    EXPECT_TRUE(dom->Get("app.fulldump", value));
    EXPECT_FALSE(value);
}

TEST_F(DomTest, ClearingMakesAbsentAndOnlyOnce) {
    dom->Set("app.background", true);
    EXPECT_TRUE(dom->SetNil("app.background"));
    EXPECT_FALSE(dom->SetNil("app.background"));
    EXPECT_FALSE(dom->Find("app.background"));
    EXPECT_FALSE(dom->Set("", "a variable needs a name"));
}

TEST_F(DomTest, NamesAreSortedAndChosenByPrefix) {
    for (const char* name : {"b", "a.c", "a.b", "a", "aa"}) {
        dom->Set(name, true);
    }
    EXPECT_THAT(dom->Names(""), ElementsAre("a", "a.b", "a.c", "aa", "b"));
    EXPECT_THAT(dom->Names("a."), ElementsAre("a.b", "a.c"));
}

TEST_F(DomTest, PluginPathsLieBelowTheWorkingFolderAndNowhereElse) {
    EXPECT_EQ(dom->GetPluginWorkdirWx("diag"), "");
    dom->Set("app.path.work", "/var/w");
    EXPECT_EQ(dom->GetPluginWorkdirWx("diag"), "/var/w/plugins/diag");
    EXPECT_EQ(dom->GetPluginFile("zelka_core", "a.db"), "/var/w/plugins/zelka_core/a.db");
    for (const char* name : {"", ".", "..", "a/b", "a\\b"}) {
        EXPECT_EQ(dom->GetPluginWorkdirWx(name), "") << name;
        EXPECT_EQ(dom->GetPluginFile("diag", name), "") << name;
    }
}

TEST_F(DomTest, TraceVariablesReplaceAndAdd) {
    dom->Set("app.trace", "One, Two");
    dom->Set("app.trace+", "Three");
    dom->Set("app.trace+", "Four");
    dom->Set("app.trace", "Five");
    EXPECT_FALSE(LogTraceIsEnabled("One"));
    for (const char* module : {"Three", "Four", "Five"}) {
        EXPECT_TRUE(LogTraceIsEnabled(module)) << module;
    }
    dom->SetNil("app.trace");
    dom->SetNil("app.trace+");
    for (const char* module : {"Three", "Four", "Five"}) {
        EXPECT_FALSE(LogTraceIsEnabled(module)) << module;
    }
}

TEST_F(DomTest, ThereIsNoStoreButTheRoot) {
    bool created = true;
    EXPECT_EQ(CDom::New(nullptr, dom.get(), &created, false), nullptr);
    EXPECT_FALSE(created);
}

TEST_F(DomTest, ThreadsThatHammerItSeeOnlyWholeValues) {
    const auto hammer = [this](const std::string& text) {
        for (int i = 0; i < 3000; ++i) {
            dom->Set("shared", text);
            dom->Set("app.trace+", text);
            const std::string seen = dom->Get("shared");
            EXPECT_TRUE(seen.empty() || seen == "left" || seen == "right") << seen;
            (void)dom->Names("s");
            (void)dom->SetNil("shared");
            (void)dom->ConditionRaise("c");
            (void)LogTraceIsEnabled("left");
        }
    };
    std::thread other(hammer, "left");
    hammer("right");
    other.join();
    dom->SetNil("app.trace+");
}

}  // namespace
}  // namespace ZelkaCore
