#include "apps/zelka/host/fips_decision.h"

#include <gtest/gtest.h>

TEST(FipsDecision, EverySettingButNoneAndZeroTurnsItOnAndTheSystemIsAskedOnlyWithoutOne) {
    using Policy = std::optional<long>;
    const struct {
        const char* configured;
        Policy policy;
        bool isOn;
    } cases[] = {
        {"0", 1, false}, {"1", 0, true},  {"no", 0, true}, {"00", 0, true},
        {" 0", 0, true}, {"", {}, false}, {"", 0, false},  {"", -1, true},
    };
    for (const auto& item : cases) {
        bool isAsked = false;
        const wxString setting = FipsSetting(item.configured, [&] {
            isAsked = true;
            return item.policy;
        });
        EXPECT_EQ(IsFipsOn(setting), item.isOn) << item.configured;
        EXPECT_EQ(isAsked, *item.configured == '\0') << item.configured;
    }
}
