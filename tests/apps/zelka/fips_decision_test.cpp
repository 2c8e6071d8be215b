#include "apps/zelka/host/fips_decision.h"

#include <gtest/gtest.h>

namespace {

wxString Setting(const char* configured, std::optional<long> policy) {
    return FipsSetting(configured, [policy] { return policy; });
}

TEST(FipsDecision, TheConfigurationGoesBeforeTheSystemWhichIsNotAskedThen) {
    bool asked = false;
    const auto policy = [&asked] {
        asked = true;
        return std::optional(1L);
    };
    EXPECT_FALSE(IsFipsOn(FipsSetting("0", policy)));
    EXPECT_TRUE(IsFipsOn(FipsSetting("1", policy)));
    EXPECT_FALSE(asked);
    EXPECT_TRUE(IsFipsOn(FipsSetting("", policy)));
    EXPECT_TRUE(asked);
}

TEST(FipsDecision, EverySettingButNoneAndZeroTurnsItOn) {
    for (const char* on : {"1", "yes", "no", "00", " 0", "false"}) {
        EXPECT_TRUE(IsFipsOn(Setting(on, 0))) << on;
    }
    EXPECT_FALSE(IsFipsOn(Setting("", std::nullopt)));
    EXPECT_FALSE(IsFipsOn(Setting("", 0)));
    EXPECT_EQ(Setting("", -1), "-1");
    EXPECT_TRUE(IsFipsOn(Setting("", -1)));
}

}  // namespace
