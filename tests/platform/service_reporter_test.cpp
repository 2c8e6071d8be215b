#include "platform/linux/service/service_reporter.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

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
    reporter.ReportProgress("installing 3 of 12: Feature-RELAY-1.0\nREADY=1");
    ASSERT_FALSE(reporter.Repeat());
    reporter.ReportProgress("");
    ASSERT_FALSE(reporter.Report(Status(SERVICE_RUNNING, 4000), "running"));
    ASSERT_FALSE(reporter.Repeat());
    EXPECT_EQ(reporter.Report(Status(7, 0), "no state"),
              std::make_error_code(std::errc::invalid_argument));
    reporter.ExtendTimeout();
    reporter.ExtendTimeout();
    ASSERT_EQ(unsetenv("NOTIFY_SOCKET"), 0);
    const std::string progress = "STATUS=installing 3 of 12: Feature-RELAY-1.0 READY=1";
    const std::string patience = "EXTEND_TIMEOUT_USEC=300000000";
    const std::string running = "READY=1\nSTATUS=running";
    for (const std::string& message :
         {std::string("STATUS=init"), progress + "\n" + patience, progress,
          std::string("STATUS=init"), running + "\nEXTEND_TIMEOUT_USEC=4000000", running,
          patience}) {
        EXPECT_EQ(manager.Receive(MSG_DONTWAIT), message);
    }
    EXPECT_EQ(manager.Receive(MSG_DONTWAIT), std::nullopt);
    EXPECT_EQ(reporter.LastReport().dwCurrentState, SERVICE_RUNNING);
}

}  // namespace
