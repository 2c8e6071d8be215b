#include "zelka_core/system/clocks.h"

#include <gtest/gtest.h>

#include <ctime>

namespace ZelkaCore {
namespace {

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
