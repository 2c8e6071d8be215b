#include "platform/service_progress.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstdlib>
#include <string>

#include "platform/scoped_fd.h"
#include "tests/support/scratch_folder.h"

namespace {

// The service manager's end of the line.
class ServiceProgress : public testing::Test {
  protected:
    void SetUp() override {
        const std::string path = (m_folder.Path() / "notify").string();
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        ASSERT_LT(path.copy(address.sun_path, sizeof address.sun_path - 1),
                  sizeof address.sun_path);
        m_socket.Reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(bind(m_socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  0);
        ASSERT_EQ(setenv("NOTIFY_SOCKET", path.c_str(), 1), 0);
    }
    void TearDown() override { ASSERT_EQ(unsetenv("NOTIFY_SOCKET"), 0); }

    // The next message that has arrived; empty if there is none.
    std::string Received() {
        std::array<char, 1024> buffer{};
        const ssize_t length = recv(m_socket.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        return {buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
    }

    ScratchFolder m_folder;
    ScopedFd m_socket;
};

TEST_F(ServiceProgress, ShowsOneLineAndAsksForPatience) {
    ReportServiceProgress("installing 3 of 12: Feature-RELAY-1.0\nREADY=1");
    EXPECT_EQ(Received(),
              "STATUS=installing 3 of 12: Feature-RELAY-1.0 READY=1\n"
              "EXTEND_TIMEOUT_USEC=300000000");
    ASSERT_EQ(unsetenv("NOTIFY_SOCKET"), 0);
    ReportServiceProgress("nobody asked");
    EXPECT_EQ(Received(), "");
}

TEST_F(ServiceProgress, AsksOnceForManyCallsInARow) {
    ExtendServiceTimeout();
    ExtendServiceTimeout();
    EXPECT_EQ(Received(), "EXTEND_TIMEOUT_USEC=300000000");
    EXPECT_EQ(Received(), "");
}

}  // namespace
