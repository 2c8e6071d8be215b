#include "zelka_core/store/wait_engine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <map>
#include <random>
#include <thread>

#include "platform/scoped_fd.h"
#include "tests/support/new_event.h"
#include "tests/zelka_core/store/observer.h"

namespace ZelkaCore {
namespace {

AwaitedDescriptor For(int descriptor, unsigned events) {
    return {descriptor, events, std::nullopt};
}

// Two descriptors, each of which reads what is written to the other.
class WaitEngine : public WaitTest {
  protected:
    WaitEngine() {
        int pair[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
        near = ScopedFd(pair[0]);
        far = ScopedFd(pair[1]);
    }

    ScopedFd near;
    ScopedFd far;
};

TEST_F(WaitEngine, WakesThoseWhoWaitForOneDescriptorEachForItsOwn) {
    observer.Start({For(near.Get(), Poller::kReadable)}, kGenerous);
    other.Start({For(near.Get(), Poller::kReadable), For(near.Get(), Poller::kWritable)},
                kGenerous);
    EXPECT_EQ(other.Finish().index, 1U);
    EXPECT_FALSE(observer.Look());
    ASSERT_EQ(write(far.Get(), "x", 1), 1);
    EXPECT_EQ(observer.Finish().kind, Kind::kFired);
    for (Observer* each : {&observer, &other}) {
        each->Start({"never", For(near.Get(), Poller::kReadable)}, kGenerous);
    }
    EXPECT_EQ(other.Finish().index, 1U);
    EXPECT_EQ(observer.Finish().index, 1U);
    EXPECT_EQ(other.WaitFor({For(near.Get(), Poller::kReadable)}, kAtOnce).kind, Kind::kFired);
    EXPECT_EQ(other.WaitFor({For(near.Get(), Poller::kUrgent)}, kAtOnce).kind, Kind::kTimeout);
}

TEST_F(WaitEngine, ServesWhatCanBeWaitedForAndNamesWhatCannot) {
    const ScopedFd file(memfd_create("regular", MFD_CLOEXEC));
    EXPECT_EQ(observer.WaitFor({"never", For(file.Get(), Poller::kReadable)}, kGenerous).index, 1U);

    const int number = near.Get();
    near = ScopedFd();
    const auto refused = observer.WaitFor({"never", For(number, Poller::kReadable)}, kGenerous);
    EXPECT_EQ(refused.kind, Kind::kFailed);
    EXPECT_EQ(refused.index, 1U);
    EXPECT_EQ(refused.error, std::errc::bad_file_descriptor);
    EXPECT_EQ(observer.WaitFor({For(far.Get(), Poller::kReadable)}, kGenerous).kind, Kind::kFired)
        << "the other side is closed";
}

TEST_F(WaitEngine, ServesANumberAnewThatBelongsToAnotherDescriptorByNow) {
    observer.Start({For(near.Get(), Poller::kReadable)}, kAtOnce);
    EXPECT_EQ(observer.Finish().kind, Kind::kTimeout);
    int pair[2];
    ASSERT_EQ(pipe2(pair, O_CLOEXEC), 0);
    const ScopedFd reader(pair[0]);
    const ScopedFd writer(pair[1]);
    ASSERT_EQ(dup3(reader.Get(), near.Get(), O_CLOEXEC), near.Get());
    observer.Start({For(near.Get(), Poller::kReadable)}, kGenerous);
    ASSERT_EQ(write(writer.Get(), "x", 1), 1);
    EXPECT_EQ(observer.Finish().kind, Kind::kFired);
}

TEST_F(WaitEngine, GivesEachSignalOfAnEventToOneAndKeepsTheOtherWaiting) {
    const ScopedHandle event(NewEvent(false, false));
    observer.Start({FindEvent(event.Get())}, kGenerous);
    other.Start({FindEvent(event.Get())}, kGenerous);
    ASSERT_FALSE(SetEvent(event.Get()));
    engine.Sleep();
    EXPECT_EQ(observer.Finish().kind, Kind::kFired);
    EXPECT_FALSE(other.Look());
    std::thread setter([&] { EXPECT_FALSE(SetEvent(event.Get())); });
    engine.Sleep();
    EXPECT_LT(CWaitEngine::Clock::now(), *other.Until()) << "only the time has woken it";
    EXPECT_EQ(other.Finish().kind, Kind::kFired);
    setter.join();
    EXPECT_EQ(observer.WaitFor({FindEvent(event.Get())}, kAtOnce).kind, Kind::kTimeout);
}

TEST_F(WaitEngine, SleepsNoLongerThanUntilTheFirstDeadline) {
    constexpr std::chrono::milliseconds kSoon{20};
    other.Start({}, kGenerous);
    const auto soon = CWaitEngine::Clock::now() + kSoon;
    EXPECT_EQ(observer.WaitFor({"never"}, kSoon).kind, Kind::kTimeout);
    EXPECT_GE(CWaitEngine::Clock::now(), soon);
    EXPECT_EQ(observer.WaitFor({AwaitedDescriptor{-1, 0, soon}}, kGenerous).kind, Kind::kFired);
    EXPECT_FALSE(other.Look());
}

TEST(TimerHeap, GivesTheEarliestFirstWhateverWasTakenOut) {
    struct Owner {
        std::size_t heapPlace = TimerHeap<Owner>::kNowhere;
    };
    using Time = TimerHeap<Owner>::Time;
    std::array<Owner, 100> owners;
    std::map<const Owner*, Time> expected;
    TimerHeap<Owner> heap;
    std::mt19937 random(7);  // NOLINT(cert-msc*): the same times each time
    for (int i = 0; i < 2'000; ++i) {
        Owner& owner = owners[random() % owners.size()];
        heap.Remove(owner);
        if (expected.erase(&owner) == 0) {
            const Time time(std::chrono::seconds(random() % 50));
            heap.Add(owner, time);
            expected[&owner] = time;
        }
        ASSERT_EQ(heap.IsEmpty(), expected.empty());
        for (const auto& [each, time] : expected) {
            ASSERT_LE(heap.FirstTime(), time);
        }
        ASSERT_TRUE(heap.IsEmpty() || expected[&heap.First()] == heap.FirstTime());
    }
}

}  // namespace
}  // namespace ZelkaCore
