#include "zelka_core/store/conditions.h"

#include <gtest/gtest.h>

#include <atomic>
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
        EXPECT_EQ(conditions.Raise(name), 0U);
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

TEST_F(Conditions, AnEventInFrontIsNotStarvedByAConditionThatIsAlwaysRaised) {
    const ScopedHandle stop(NewEvent(true, true));
    conditions.Raise("tick");
    EXPECT_EQ(observer.Wait({stop.Get(), "tick"}, kGenerous).index, 0U);
}

// Two threads play ping-pong; a raise that is lost would hang them.
TEST_F(Conditions, NoRaiseIsLostBetweenTwoWaits) {
    constexpr int kRounds = 2000;
    std::thread thread([&] {
        CConditionObserver other(conditions);
        for (int i = 0; i < kRounds; ++i) {
            ASSERT_EQ(other.Wait({"ping"}, kGenerous).kind, Kind::kFired);
            conditions.Raise("pong");
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        conditions.Raise("ping");
        EXPECT_EQ(observer.Wait({"pong"}, kGenerous).kind, Kind::kFired);
    }
    thread.join();
}

TEST_F(Conditions, ARaiseTellsHowManyWaitersItWoke) {
    std::atomic<int> fired = 0;
    const auto wait = [&] {
        CConditionObserver waiter(conditions);
        fired += waiter.Wait({"a", "quit"}, kGenerous).kind == Kind::kFired ? 1 : 0;
    };
    std::thread first(wait);
    std::thread second(wait);
    // Each waiter is counted by the raise that wakes it, and by no other.
    unsigned int woken = 0;
    while (fired < 2) {
        woken += conditions.Raise("a");
        std::this_thread::yield();
    }
    first.join();
    second.join();
    EXPECT_LE(woken, 2U);
}

}  // namespace
}  // namespace ZelkaCore
