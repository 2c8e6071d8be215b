#include "platform/ip_helper.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <string>

namespace {

class AddressChange : public testing::Test {
  protected:
    void Arm() {
        ASSERT_EQ(NotifyAddrChange(&m_handle, &m_overlapped), ERROR_IO_PENDING);
        ASSERT_EQ(WSAGetLastError(), ERROR_IO_PENDING);
        ASSERT_NE(m_handle, 0);
    }

    // 0 if the notification has fired, or why not.
    DWORD Ask(bool wait = false) {
        DWORD bytes = 7;
        const bool fired = GetOverlappedResult(m_handle, &m_overlapped, &bytes, wait);
        EXPECT_EQ(bytes, fired ? 0U : 7U);
        return fired ? 0 : GetLastError();
    }

    OVERLAPPED m_overlapped;
    HANDLE m_handle = 0;
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
        EXPECT_EQ(Ask(), ERROR_IO_INCOMPLETE);
        Change(change);
        // A new address of version 6 is announced by the system's worker, after `ip` has ended.
        pollfd announced{.fd = fd, .events = POLLIN, .revents = 0};
        ASSERT_EQ(poll(&announced, 1, 60'000), 1);
        EXPECT_EQ(Ask(), 0U);
        EXPECT_EQ(Ask(), DWORD{EINVAL}) << "fired and not armed again";
    }
    Change(many);
    Arm();
    EXPECT_EQ(Ask(), ERROR_IO_INCOMPLETE) << "what was before is not told";
}

TEST_F(AddressChange, IsNotWaitedForAndCanBeGivenUp) {
    Arm();
    EXPECT_EQ(Ask(true), DWORD{EINVAL});
    EXPECT_TRUE(CancelIPChangeNotify(&m_overlapped));
    EXPECT_FALSE(CancelIPChangeNotify(&m_overlapped));
    EXPECT_EQ(Ask(), DWORD{EINVAL});
}

}  // namespace
