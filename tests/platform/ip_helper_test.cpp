#include "platform/ip_helper.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>

#include <cstdio>
#include <string>
#include <system_error>

namespace {

class AddressChange : public testing::Test {
  protected:
    void Arm() { ASSERT_FALSE(NotifyAddrChange(m_overlapped)); }

    bool HasFired() {
        bool hasFired = false;
        EXPECT_FALSE(GetOverlappedResult(m_overlapped, hasFired));
        return hasFired;
    }

    // What is neither armed nor has just fired cannot be asked.
    void ExpectUnarmed() {
        bool hasFired = true;
        EXPECT_EQ(GetOverlappedResult(m_overlapped, hasFired),
                  std::make_error_code(std::errc::invalid_argument));
        EXPECT_TRUE(hasFired) << "touched by a failure";
    }

    OVERLAPPED m_overlapped;
};

// Runs commands of `ip`, one a line.
void Change(const std::string& commands) {
    FILE* pipe = popen("ip -batch -", "w");  // NOLINT(cert-env33-c): a fixed command
    ASSERT_NE(pipe, nullptr);
    (void)std::fputs((commands + "\n").c_str(), pipe);
    ASSERT_EQ(pclose(pipe), 0) << commands;
}

TEST_F(AddressChange, OfAnyKindAndNumberFiresTheNotificationOnceAndOneOfALinkDoesNot) {
    if (unshare(CLONE_NEWNET) != 0) {  // for good: no other test needs a network
        GTEST_SKIP() << "no network of its own for this test: needs root";
    }
    Change("link set lo up");
    std::string many;
    for (int i = 0; i < 100; ++i) {
        many += "addr add 127.1.0.1/32 dev lo\naddr del 127.1.0.1/32 dev lo\n";
    }
    for (const std::string& change : std::initializer_list<std::string>{
             "addr add 127.1.0.1/32 dev lo", "addr del 127.1.0.1/32 dev lo",
             "addr add fd00::1/128 dev lo nodad", "addr del fd00::1/128 dev lo", many}) {
        SCOPED_TRACE(change.substr(0, 60));
        Arm();
        // Room for a few messages only.
        const int least = 1;
        const int fd = m_overlapped.Internal.Get();
        ASSERT_EQ(setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &least, sizeof least), 0);
        Change("link set lo mtu 1400");
        EXPECT_FALSE(HasFired());
        Change(change);
        // A new address of version 6 is announced by the system's worker, after `ip` has ended.
        pollfd announced{.fd = fd, .events = POLLIN, .revents = 0};
        ASSERT_EQ(poll(&announced, 1, 60'000), 1);
        EXPECT_TRUE(HasFired());
        ExpectUnarmed();
    }
    Change(many);
    Arm();
    EXPECT_FALSE(HasFired()) << "what was before is not told";
}

TEST_F(AddressChange, CanBeGivenUp) {
    Arm();
    CancelIPChangeNotify(m_overlapped);
    ExpectUnarmed();
}

}  // namespace
