#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "apps/zelka/watcher/clock_rule.h"

namespace {

// The ticks of those settings that are told, for a frame made at tick `last`.
std::vector<std::uint32_t> Told(std::uint32_t last, const std::vector<std::uint32_t>& settings) {
    std::vector<std::uint32_t> told;
    for (const std::uint32_t now : settings) {
        if (IsClockChangeTold(now, last)) {
            last = now;
            told.push_back(now);
        }
    }
    return told;
}

TEST(ClockRule, ASettingIsToldTwoSecondsAfterTheLastOneThatWas) {
    using Ticks = std::vector<std::uint32_t>;
    EXPECT_EQ(Told(0, {0, 1999}), Ticks{});
    EXPECT_EQ(Told(0, {2000, 3999, 4000}), (Ticks{2000, 4000}));
    EXPECT_EQ(Told(0, {2000, 3000, 4000, 5000, 6000, 7000}), (Ticks{2000, 4000, 6000}));
}

TEST(ClockRule, HoldsWhereTheTickWrapsAround) {
    constexpr std::uint32_t kNearEnd = std::numeric_limits<std::uint32_t>::max() - 999;
    EXPECT_EQ(Told(kNearEnd, {999, 1000, 2999, 3000}), (std::vector<std::uint32_t>{1000, 3000}));
}

}  // namespace
