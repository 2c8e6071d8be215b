#include "zelka_core/store/dom.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "zelka_core/log/trace.h"

namespace ZelkaCore {
namespace {

TEST(Dom, ThreadsThatHammerItSeeOnlyWholeValues) {
    const std::unique_ptr<CDom> dom(CDom::New(nullptr, nullptr, nullptr, false));
    const auto hammer = [&](const std::string& text) {
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
