#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "apps/zelka/watcher/agent_frame.h"
#include "apps/zelka/watcher/clock_rule.h"
#include "platform/scoped_fd.h"
#include "tests/support/captured_log.h"

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

using testing::ElementsAre;
using testing::StartsWith;

// The socket of the armed notification; -1 if there is none.
int NotificationSocket() {
    for (int fd = 3; fd < 100; ++fd) {
        int domain = 0;
        socklen_t size = sizeof(domain);
        if (getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_NETLINK) {
            return fd;
        }
    }
    return -1;
}

// The notification cannot be asked any more.
void BreakNotification() {
    const ScopedFd other(open("/dev/null", O_RDONLY | O_CLOEXEC));
    ASSERT_GE(dup3(other.Get(), NotificationSocket(), O_CLOEXEC), 0);
}

// While it lives the process opens no further descriptor.
class NoDescriptors {
  public:
    NoDescriptors() {
        (void)getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit none{0, m_before.rlim_max};
        (void)setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { (void)setrlimit(RLIMIT_NOFILE, &m_before); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

  private:
    rlimit m_before{};
};

class Frame : public testing::Test {
  protected:
    void Tick() {
        wxTimerEvent event(m_frame->Timer());
        (void)m_frame->ProcessEvent(event);
    }

    const CapturedLog m_log;
    std::unique_ptr<CAgentFrame> m_frame = std::make_unique<CAgentFrame>(nullptr, "test");
};

TEST_F(Frame, ArmsTheNotificationWithTheFirstTickAndGivesItUpInTheEnd) {
    EXPECT_EQ(NotificationSocket(), -1);
    Tick();
    const int armed = NotificationSocket();
    EXPECT_NE(armed, -1);
    Tick();
    EXPECT_EQ(NotificationSocket(), armed);
    m_frame.reset();
    EXPECT_EQ(NotificationSocket(), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre());
}

TEST_F(Frame, ANotificationThatCannotBeAskedIsToldAndArmedAgainInTheSameTick) {
    Tick();
    BreakNotification();
    EXPECT_EQ(NotificationSocket(), -1);
    Tick();
    EXPECT_NE(NotificationSocket(), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre(StartsWith("GetOverlappedResult() (error 88")));
}

TEST_F(Frame, ArmingIsTriedWithEachTickAndToldWhenItFails) {
    Tick();
    BreakNotification();
    {
        const NoDescriptors limit;
        Tick();
        Tick();
    }
    EXPECT_THAT(m_log.Lines(), ElementsAre(StartsWith("GetOverlappedResult() (error 88"),
                                           StartsWith("NotifyAddrChange() (error 24"),
                                           StartsWith("NotifyAddrChange() (error 24")));
    Tick();
    EXPECT_NE(NotificationSocket(), -1);
}

}  // namespace
