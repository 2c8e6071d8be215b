#include "platform/service_progress.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/platform/notify_socket.h"

namespace {

TEST(ServiceProgress, ShowsOneLineAndAsksForPatienceOnceForManyCallsInARow) {
    const NotifySocket manager;
    ReportServiceProgress("nobody asked");
    ASSERT_EQ(setenv("NOTIFY_SOCKET", manager.Path().c_str(), 1), 0);
    ReportServiceProgress("installing 3 of 12: Feature-RELAY-1.0\nREADY=1");
    ExtendServiceTimeout();
    ExtendServiceTimeout();
    ASSERT_EQ(unsetenv("NOTIFY_SOCKET"), 0);
    EXPECT_EQ(manager.Receive(MSG_DONTWAIT),
              "STATUS=installing 3 of 12: Feature-RELAY-1.0 READY=1\n"
              "EXTEND_TIMEOUT_USEC=300000000");
    EXPECT_EQ(manager.Receive(MSG_DONTWAIT), "EXTEND_TIMEOUT_USEC=300000000");
    EXPECT_EQ(manager.Receive(MSG_DONTWAIT), std::nullopt);
}

}  // namespace
