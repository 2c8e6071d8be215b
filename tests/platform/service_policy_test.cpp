#include "platform/linux/service/service_policy.h"

#include <gtest/gtest.h>

namespace {

// Controls of the application: one passes while the service starts, the other does not.
constexpr ServiceControl kOwn[] = {{128, 1, true}, {129, 2, false}};

constexpr DWORD kAll = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN;

SERVICE_STATUS Last(DWORD state, DWORD accepted) {
    SERVICE_STATUS status = {};
    status.dwCurrentState = state;
    status.dwControlsAccepted = accepted;
    return status;
}

TEST(ServicePolicy, AStopWaitsForTheStartAndIsRefusedByAHardenedServiceWhichAlwaysAnswers) {
    using enum ControlFate;
    const struct {
        DWORD state;
        DWORD accepted;
        ControlFate stop;
        ControlFate shutdown;
        ControlFate question;  // what passes while the service starts
        ControlFate other;
    } cases[] = {
        {0, 0, kHold, kHold, kDrop, kDrop},
        {SERVICE_START_PENDING, 0, kHold, kHold, kDeliver, kDrop},
        {SERVICE_RUNNING, kAll, kDeliver, kDeliver, kDeliver, kDeliver},
        {SERVICE_RUNNING, SERVICE_ACCEPT_SHUTDOWN, kRefuse, kDeliver, kDeliver, kDeliver},
        {SERVICE_RUNNING, 0, kRefuse, kRefuse, kDeliver, kDeliver},
        {SERVICE_STOP_PENDING, kAll, kDrop, kDeliver, kDeliver, kDeliver},
        {SERVICE_STOPPED, kAll, kDrop, kDrop, kDrop, kDrop},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(item.state);
        const SERVICE_STATUS last = Last(item.state, item.accepted);
        EXPECT_EQ(JudgeControl(SERVICE_CONTROL_STOP, last, kOwn), item.stop);
        EXPECT_EQ(JudgeControl(SERVICE_CONTROL_SHUTDOWN, last, kOwn), item.shutdown);
        for (const DWORD control : {4U, 128U}) {
            EXPECT_EQ(JudgeControl(control, last, kOwn), item.question) << control;
        }
        for (const DWORD control : {0U, 2U, 11U, 129U, 255U, 0xFFFFFFFFU}) {
            EXPECT_EQ(JudgeControl(control, last, kOwn), item.other) << control;
        }
    }
}

TEST(ServicePolicy, AReportIsOneLineWithMoreTimeAndAnErrorNumberThatSystemdTakesForOne) {
    SERVICE_STATUS status = Last(SERVICE_START_PENDING, kAll);
    status.dwWaitHint = 4000;
    EXPECT_EQ(NotificationText(status, "a\nREADY=1"),
              "STATUS=a READY=1\nEXTEND_TIMEOUT_USEC=4000000");
    status = Last(SERVICE_STOPPED, kAll);
    status.dwWin32ExitCode = static_cast<DWORD>(-1);
    EXPECT_EQ(NotificationText(status, "over"), "STATUS=over");
}

TEST(ServicePolicy, AFailureStaysOneAsExitStatus) {
    EXPECT_EQ(ExitStatusOf(0x105), 5);
    EXPECT_EQ(ExitStatusOf(0x100), 255);
    EXPECT_EQ(ExitStatusOf(static_cast<DWORD>(-1)), 255);
}

TEST(ServicePolicy, TheServiceIsNamedByItsUnit) {
    EXPECT_EQ(ServiceNameOf("agent@two.service", "other"), "agent@two");
    for (const char* other : {"session-1.scope", ".service", ""}) {
        EXPECT_EQ(ServiceNameOf(other, "agent"), "agent");
    }
}

}  // namespace
