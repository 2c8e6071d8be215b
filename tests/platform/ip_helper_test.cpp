#include "platform/ip_helper.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

// Runs the test in a network of its own, which goes with the test.
class AddressChange : public testing::Test {
  protected:
    void SetUp() override {
        m_outer.Reset(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
        if (unshare(CLONE_NEWNET) != 0) {
            m_outer.Reset();
            GTEST_SKIP() << "no network of its own for this test: needs root";
        }
        Change("link set lo up");
    }
    void TearDown() override {
        if (m_outer.IsOpen()) {
            ASSERT_EQ(setns(m_outer.Get(), CLONE_NEWNET), 0);
        }
    }

    // Runs commands of `ip`, one a line. The kernel has told its listeners when this returns.
    static void Change(const std::string& commands) {
        FILE* pipe = popen("ip -batch -", "w");  // NOLINT(cert-env33-c): a fixed command
        ASSERT_NE(pipe, nullptr);
        (void)std::fputs((commands + "\n").c_str(), pipe);
        ASSERT_EQ(pclose(pipe), 0) << commands;
    }

    // Adds and removes an address so many times.
    static void ChangeTimes(int changes) {
        std::string commands;
        for (int i = 0; i < changes / 2; ++i) {
            commands += "addr add 127.1.0.1/32 dev lo\naddr del 127.1.0.1/32 dev lo\n";
        }
        Change(commands);
    }

    // How many messages the armed notification's socket had no room for.
    static unsigned long Lost() {
        std::ifstream sockets("/proc/thread-self/net/netlink");
        std::string line;
        std::string word;
        unsigned long lost = 0;
        while (std::getline(sockets, line)) {
            std::istringstream words(line);
            if (line.find(" 00000110 ") != std::string::npos) {  // the groups of the addresses
                for (int column = 0; column < 8; ++column) {
                    words >> word;
                }
                words >> lost;
            }
        }
        return lost;
    }

    void Arm() {
        ASSERT_EQ(NotifyAddrChange(&m_handle, &m_overlapped), ERROR_IO_PENDING);
        ASSERT_EQ(WSAGetLastError(), ERROR_IO_PENDING);
        ASSERT_NE(m_handle, 0);
    }

    // ERROR_IO_INCOMPLETE, another code, or 0 if the notification has fired.
    DWORD Poll() {
        DWORD bytes = 7;
        if (!GetOverlappedResult(m_handle, &m_overlapped, &bytes, false)) {
            return GetLastError();
        }
        EXPECT_EQ(bytes, 0U);
        return 0;
    }

    OVERLAPPED m_overlapped;
    HANDLE m_handle = 0;

  private:
    ScopedFd m_outer;
};

TEST_F(AddressChange, EachKindFiresTheNotificationOnce) {
    for (const char* change :
         {"addr add 127.1.0.1/32 dev lo", "addr del 127.1.0.1/32 dev lo",
          "addr add fd00::1/128 dev lo nodad", "addr del fd00::1/128 dev lo"}) {
        Arm();
        EXPECT_EQ(Poll(), ERROR_IO_INCOMPLETE) << change;
        Change(change);
        EXPECT_EQ(Poll(), 0U) << change;
        EXPECT_EQ(Poll(), DWORD{EINVAL}) << "fired and not armed again";
    }
}

TEST_F(AddressChange, TheNextNotificationKnowsNothingOfEarlierChanges) {
    Arm();
    ChangeTimes(200);
    EXPECT_EQ(Poll(), 0U);
    ChangeTimes(2);
    Arm();
    EXPECT_EQ(Poll(), ERROR_IO_INCOMPLETE);
    Change("link set lo mtu 1400");
    EXPECT_EQ(Poll(), ERROR_IO_INCOMPLETE) << "a link is no address";
    ChangeTimes(2);
    EXPECT_EQ(Poll(), 0U);
}

TEST_F(AddressChange, MoreChangesThanTheSystemKeepsAreAChange) {
    Arm();
    ChangeTimes(4000);
    ASSERT_GT(Lost(), 0U);
    EXPECT_EQ(Poll(), 0U);
    Arm();
    EXPECT_EQ(Poll(), ERROR_IO_INCOMPLETE);
}

TEST(AddressNotification, SignalsItsEventAndCanBeGivenUp) {
    OVERLAPPED overlapped;
    overlapped.hEvent = WSACreateEvent();
    ASSERT_TRUE(SetEvent(overlapped.hEvent));
    HANDLE handle = 0;
    ASSERT_EQ(NotifyAddrChange(&handle, &overlapped), ERROR_IO_PENDING);
    EXPECT_EQ(WaitForMultipleObjects(1, &overlapped.hEvent, false, 0), WAIT_TIMEOUT);

    DWORD bytes = 0;
    EXPECT_FALSE(GetOverlappedResult(handle, &overlapped, &bytes, true));
    EXPECT_EQ(GetLastError(), DWORD{EINVAL}) << "it never waits";
    EXPECT_TRUE(CancelIPChangeNotify(&overlapped));
    EXPECT_FALSE(CancelIPChangeNotify(&overlapped));
    EXPECT_FALSE(GetOverlappedResult(handle, &overlapped, &bytes, false));
    EXPECT_TRUE(WSACloseEvent(overlapped.hEvent));
    EXPECT_FALSE(WSACloseEvent(0));
}

}  // namespace
