#include "zelka_core/store/conditions.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/support/new_event.h"

namespace ZelkaCore {
namespace {

using Kind = CConditionObserver::Result::Kind;

constexpr DWORD kGenerous = 60'000;

class Conditions : public testing::Test {
  protected:
    CConditions conditions;
    CConditionObserver observer{conditions};
};

TEST_F(Conditions, EveryObserverSeesEveryRaiseOnceInTheOrderOfItsList) {
    const ScopedHandle event(NewEvent(false, true));
    CConditionObserver other(conditions);
    for (const char* name : {"a", "b", "a"}) {
        conditions.Raise(name);
    }
    const std::vector<CConditionObserver::Item> items{"b", event.Get(), "a"};
    for (const std::size_t expected : {0U, 1U, 2U}) {
        const auto result = observer.Wait(items, 0);
        EXPECT_EQ(result.kind, Kind::kFired);
        EXPECT_EQ(result.index, expected);
    }
    EXPECT_EQ(observer.Wait(items, 0).kind, Kind::kTimeout);
    EXPECT_EQ(other.Wait(items, 0).index, 0U);
    EXPECT_EQ(other.Wait(items, 0).index, 2U);
}

// Two threads play ping-pong; a raise that is lost would hang them.
TEST_F(Conditions, NoRaiseIsLostBetweenTwoWaitsAndNoneWakesMoreThanOneWhoWaits) {
    constexpr int kRounds = 2000;
    std::thread thread([&] {
        CConditionObserver other(conditions);
        for (int i = 0; i < kRounds; ++i) {
            ASSERT_EQ(other.Wait({"ping"}, kGenerous).kind, Kind::kFired);
            EXPECT_LE(conditions.Raise("pong"), 1U);
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        EXPECT_LE(conditions.Raise("ping"), 1U);
        EXPECT_EQ(observer.Wait({"pong"}, kGenerous).kind, Kind::kFired);
    }
    thread.join();
}

}  // namespace
}  // namespace ZelkaCore
