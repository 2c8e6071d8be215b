#include "zelka_core/system/clocks.h"

#include <gtest/gtest.h>

#include <ctime>

namespace ZelkaCore {
namespace {

TEST(Clocks, TheTimeCountsMillisecondsSince1970) {
    const std::time_t before = std::time(nullptr);
    const std::int64_t now = TimeNowMillis();
    const std::time_t after = std::time(nullptr);
    // time() may lag behind by a timer tick.
    EXPECT_GE(now, std::int64_t{before} * 1000);
    EXPECT_LT(now, (std::int64_t{after} + 2) * 1000);
}

TEST(Clocks, TheTickCountsMillisecondsOfElapsedTime) {
    const unsigned int begin = SystemTickCount();
    const timespec wait = {.tv_sec = 0, .tv_nsec = 30'000'000};
    ASSERT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &wait, nullptr), 0);
    const unsigned int passed = SystemTickCount() - begin;
    EXPECT_GE(passed, 29U);
    EXPECT_LT(passed, 60'000U);
}

}  // namespace
}  // namespace ZelkaCore
