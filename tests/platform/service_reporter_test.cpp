#include "platform/linux/service/service_reporter.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "tests/platform/notify_socket.h"

namespace {

SERVICE_STATUS Status(DWORD state, DWORD waitHint) {
    SERVICE_STATUS status = {};
    status.dwCurrentState = state;
    status.dwControlsAccepted = SERVICE_ACCEPT_STOP;
    status.dwWaitHint = waitHint;
    return status;
}

TEST(ServiceReporter, AnAnswerRepeatsWhatWasReportedLastAndManyCallsInARowAskForPatienceOnce) {
    const NotifySocket manager;
    ServiceReporter reporter;
    reporter.Open("");
    ASSERT_EQ(setenv("NOTIFY_SOCKET", manager.Path().c_str(), 1), 0);
    ASSERT_FALSE(reporter.Report(Status(SERVICE_START_PENDING, 0), "init"));
    reporter.ReportProgress("installing 3 of 12: A-1\nREADY=1");
    ASSERT_FALSE(reporter.Repeat());
    reporter.ReportProgress("");
    ASSERT_FALSE(reporter.Report(Status(SERVICE_RUNNING, 4000), "running"));
    ASSERT_FALSE(reporter.Repeat());
    EXPECT_EQ(reporter.Report(Status(7, 0), "no state"),
              std::make_error_code(std::errc::invalid_argument));
    reporter.ExtendTimeout();
    reporter.ExtendTimeout();
    ASSERT_EQ(unsetenv("NOTIFY_SOCKET"), 0);
    for (const char* message :
         {"STATUS=init", "STATUS=installing 3 of 12: A-1 READY=1\nEXTEND_TIMEOUT_USEC=300000000",
          "STATUS=installing 3 of 12: A-1 READY=1", "STATUS=init",
          "READY=1\nSTATUS=running\nEXTEND_TIMEOUT_USEC=4000000", "READY=1\nSTATUS=running",
          "EXTEND_TIMEOUT_USEC=300000000"}) {
        EXPECT_EQ(manager.Receive(MSG_DONTWAIT), message);
    }
    EXPECT_EQ(manager.Receive(MSG_DONTWAIT), std::nullopt);
    EXPECT_EQ(reporter.LastReport().dwCurrentState, SERVICE_RUNNING);
}

}  // namespace
