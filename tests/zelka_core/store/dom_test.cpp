#include "zelka_core/store/dom.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "zelka_core/log/trace.h"

namespace ZelkaCore {
namespace {

class DomTest : public testing::Test {
  protected:
    const std::unique_ptr<CDom> dom{CDom::New(nullptr, nullptr, nullptr, false)};
};

TEST_F(DomTest, ABooleanComesFromABooleanOnly) {
    bool value = false;
    EXPECT_FALSE(dom->Get("app.fulldump", value)) << "there is none";
    dom->Set("app.fulldump", "1");
    EXPECT_FALSE(dom->Get("app.fulldump", value));
    EXPECT_FALSE(value);
    dom->Set("app.fulldump", true);
    EXPECT_TRUE(dom->Get("app.fulldump", value) && value);
}

TEST_F(DomTest, NoPathLeadsOutOfThePluginsFolderAndNoStoreIsBelowTheRoot) {
    EXPECT_EQ(dom->GetPluginWorkdirWx("diag"), "") << "there is no working folder yet";
    dom->Set("app.path.work", "/var/w");
    EXPECT_EQ(dom->GetPluginWorkdirWx(".."), "");
    EXPECT_EQ(dom->GetPluginFile("diag", "a/b"), "");
    EXPECT_FALSE(dom->Set("", "a variable needs a name"));
    EXPECT_EQ(CDom::New(nullptr, dom.get(), nullptr, false), nullptr);
}

TEST_F(DomTest, TheTraceVariableReplacesItsOwnModulesAndKeepsTheAddedOnes) {
    dom->Set("app.trace", "One");
    dom->Set("app.trace+", "Two");
    dom->Set("app.trace", "Three");
    EXPECT_FALSE(LogTraceIsEnabled("One"));
    EXPECT_TRUE(LogTraceIsEnabled("Two"));
    dom->SetNil("app.trace+");
    EXPECT_FALSE(LogTraceIsEnabled("Two"));
    EXPECT_TRUE(LogTraceIsEnabled("Three"));
    dom->SetNil("app.trace");
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
