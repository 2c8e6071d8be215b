#include "zelka_core/store/conditions.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>

namespace ZelkaCore {
namespace {

using Kind = CConditionObserver::Result::Kind;

constexpr DWORD kGenerous = 60'000;

TEST(Conditions, ARaiseBeforeTheWaitCountsOnceHoweverOftenItWasRaised) {
    CConditions conditions;
    CConditionObserver observer(conditions);
    EXPECT_EQ(conditions.Raise("a"), 0U);
    EXPECT_EQ(conditions.Raise("a"), 0U);
    EXPECT_EQ(observer.Wait({"a"}, 0).kind, Kind::kFired);
    EXPECT_EQ(observer.Wait({"a"}, 0).kind, Kind::kTimeout);
}

TEST(Conditions, EveryObserverSeesARaise) {
    CConditions conditions;
    CConditionObserver first(conditions);
    CConditionObserver second(conditions);
    conditions.Raise("a");
    EXPECT_EQ(first.Wait({"a"}, 0).kind, Kind::kFired);
    EXPECT_EQ(second.Wait({"a"}, 0).kind, Kind::kFired);
}

TEST(Conditions, TheFirstOfSeveralIsReturnedAndNoneIsLost) {
    CConditions conditions;
    CConditionObserver observer(conditions);
    const ScopedHandle event(CreateEventW(nullptr, false, true, nullptr));
    conditions.Raise("a");
    conditions.Raise("b");
    const std::vector<CConditionObserver::Item> items{"b", event.Get(), "a"};
    for (const std::size_t expected : {0U, 1U, 2U}) {
        const auto result = observer.Wait(items, 0);
        EXPECT_EQ(result.kind, Kind::kFired);
        EXPECT_EQ(result.index, expected);
    }
    EXPECT_EQ(observer.Wait(items, 0).kind, Kind::kTimeout);
}

TEST(Conditions, AnEventInFrontIsNotStarvedByAConditionThatIsAlwaysRaised) {
    CConditions conditions;
    CConditionObserver observer(conditions);
    const ScopedHandle stop(CreateEventW(nullptr, true, true, nullptr));
    conditions.Raise("tick");
    EXPECT_EQ(observer.Wait({stop.Get(), "tick"}, kGenerous).index, 0U);
}

TEST(Conditions, AClosedHandleFailsTheWait) {
    CConditions conditions;
    CConditionObserver observer(conditions);
    const auto result = observer.Wait({"a", HANDLE{123456789}}, kGenerous);
    EXPECT_EQ(result.kind, Kind::kFailed);
    EXPECT_EQ(result.error, DWORD{EBADF});
}

// Two threads play ping-pong; a raise that is lost would hang them.
TEST(Conditions, NoRaiseIsLostBetweenTwoWaits) {
    CConditions conditions;
    constexpr int kRounds = 2000;
    std::thread other([&] {
        CConditionObserver observer(conditions);
        for (int i = 0; i < kRounds; ++i) {
            ASSERT_EQ(observer.Wait({"ping"}, kGenerous).kind, Kind::kFired);
            conditions.Raise("pong");
        }
    });
    CConditionObserver observer(conditions);
    for (int i = 0; i < kRounds; ++i) {
        conditions.Raise("ping");
        ASSERT_EQ(observer.Wait({"pong"}, kGenerous).kind, Kind::kFired);
    }
    other.join();
}

TEST(Conditions, ARaiseTellsHowManyWaitersItWoke) {
    CConditions conditions;
    std::atomic<int> fired = 0;
    const auto wait = [&] {
        CConditionObserver observer(conditions);
        fired += observer.Wait({"a", "quit"}, kGenerous).kind == Kind::kFired ? 1 : 0;
    };
    std::thread first(wait);
    std::thread second(wait);
    // Each waiter is counted by the raise that wakes it, and by no other.
    unsigned int woken = 0;
    while (fired + 0 < 2) {
        woken += conditions.Raise("a");
        std::this_thread::yield();
    }
    first.join();
    second.join();
    EXPECT_LE(woken, 2U);
    EXPECT_EQ(conditions.Raise("nobody"), 0U);
}

}  // namespace
}  // namespace ZelkaCore
