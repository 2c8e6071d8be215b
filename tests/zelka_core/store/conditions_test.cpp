#include <gtest/gtest.h>

#include <thread>

#include "tests/support/new_event.h"
#include "tests/zelka_core/store/observer.h"

namespace ZelkaCore {
namespace {

class Conditions : public WaitTest {};

TEST_F(Conditions, EveryObserverSeesEveryRaiseOnceInTheOrderOfItsList) {
    const ScopedHandle event(NewEvent(false, true));
    for (const char* name : {"a", "b", "a"}) {
        conditions.Raise(name);
    }
    const std::vector<Awaited> items{"b", FindEvent(event.Get()), "a"};
    for (const std::size_t expected : {0U, 1U, 2U}) {
        const auto result = observer.WaitFor(items, kAtOnce);
        EXPECT_EQ(result.kind, Kind::kFired);
        EXPECT_EQ(result.index, expected);
    }
    EXPECT_EQ(observer.WaitFor(items, kAtOnce).kind, Kind::kTimeout);
    EXPECT_EQ(other.WaitFor(items, kAtOnce).index, 0U);
    EXPECT_EQ(other.WaitFor(items, kAtOnce).index, 2U);
    CConditions::Looks late{conditions.LastRaise()};
    Observer newcomer(engine, late);
    EXPECT_EQ(newcomer.WaitFor({"a"}, kAtOnce).kind, Kind::kTimeout);
    conditions.Raise("b", true);
    EXPECT_EQ(Observer(engine, late).WaitFor({"a", "b"}, kAtOnce).index, 1U);
}

// Two threads play ping-pong; a raise that is lost would hang them.
TEST_F(Conditions, NoRaiseIsLostBetweenTwoWaitsAndNoneWakesMoreThanOneWhoWaits) {
    constexpr int kRounds = 2000;
    std::thread thread([&] {
        CWaitEngine own(conditions);
        Observer partner(own, otherLooks);
        for (int i = 0; i < kRounds; ++i) {
            ASSERT_EQ(partner.WaitFor({"ping"}, kGenerous).kind, Kind::kFired);
            EXPECT_LE(conditions.Raise("pong"), 1U);
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        EXPECT_LE(conditions.Raise("ping"), 1U);
        EXPECT_EQ(observer.WaitFor({"pong"}, kGenerous).kind, Kind::kFired);
    }
    thread.join();
}

}  // namespace
}  // namespace ZelkaCore
