#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <memory>

#include "apps/zelka/watcher/agent_frame.h"
#include "apps/zelka/watcher/clock_rule.h"
#include "platform/scoped_fd.h"
#include "tests/support/captured_log.h"

namespace {

using testing::ElementsAre;
using testing::StartsWith;

TEST(ClockRule, ASettingIsToldTwoSecondsAfterTheLastOneThatWasAlsoWhereTheTickWrapsAround) {
    for (const std::uint32_t last : {0U, 5U, 0xFFFFFFFFU - 999U}) {
        EXPECT_FALSE(IsClockChangeReported(last, last)) << last;
        EXPECT_FALSE(IsClockChangeReported(last + 1999, last)) << last;
        EXPECT_TRUE(IsClockChangeReported(last + 2000, last)) << last;
    }
}

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
    ASSERT_EQ(NotificationSocket(), -1);
}

TEST(Frame, ArmsTheNotificationWithTheFirstTickThatCanAndTellsWhenItCannotBeAsked) {
    const CapturedLog log;
    auto frame = std::make_unique<CAgentFrame>(nullptr, "test");
    const auto tick = [&frame] {
        wxTimerEvent event(frame->Timer());
        (void)frame->ProcessEvent(event);
        return NotificationSocket();
    };
    EXPECT_EQ(NotificationSocket(), -1);
    const int armed = tick();
    EXPECT_NE(armed, -1);
    EXPECT_EQ(tick(), armed);
    EXPECT_THAT(log.Lines(), ElementsAre());
    BreakNotification();
    EXPECT_NE(tick(), -1);

    BreakNotification();
    rlimit descriptors{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &descriptors), 0);
    const rlimit none{0, descriptors.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(tick(), -1);
    EXPECT_EQ(tick(), -1);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &descriptors), 0);
    EXPECT_NE(tick(), -1);
    EXPECT_THAT(log.Lines(), ElementsAre(StartsWith("GetOverlappedResult() (error 88"),
                                         StartsWith("GetOverlappedResult() (error 88"),
                                         StartsWith("NotifyAddrChange() (error 24"),
                                         StartsWith("NotifyAddrChange() (error 24")));
    frame.reset();
    EXPECT_EQ(NotificationSocket(), -1);
}

}  // namespace
