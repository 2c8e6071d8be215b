#include "platform/linux/service/service_policy.h"

#include <gtest/gtest.h>

namespace {

constexpr DWORD kAll = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN;

SERVICE_STATUS Last(DWORD state, DWORD accepted) {
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = accepted;
    return status;
}

TEST(ServicePolicy, AStopWaitsForTheStartAndIsRefusedByAHardenedService) {
    const struct {
        DWORD state;
        DWORD accepted;
        ControlFate stop;
        ControlFate shutdown;
    } cases[] = {
        {0, 0, ControlFate::kHold, ControlFate::kHold},
        {SERVICE_START_PENDING, 0, ControlFate::kHold, ControlFate::kHold},
        {SERVICE_RUNNING, kAll, ControlFate::kDeliver, ControlFate::kDeliver},
        {SERVICE_RUNNING, SERVICE_ACCEPT_SHUTDOWN, ControlFate::kRefuse, ControlFate::kDeliver},
        {SERVICE_RUNNING, 0, ControlFate::kRefuse, ControlFate::kRefuse},
        {SERVICE_STOP_PENDING, kAll, ControlFate::kDrop, ControlFate::kDeliver},
        {SERVICE_STOPPED, kAll, ControlFate::kDrop, ControlFate::kDrop},
    };
    for (const auto& item : cases) {
        const SERVICE_STATUS last = Last(item.state, item.accepted);
        EXPECT_EQ(JudgeControl(SERVICE_CONTROL_STOP, last), item.stop) << item.state;
        EXPECT_EQ(JudgeControl(SERVICE_CONTROL_SHUTDOWN, last), item.shutdown) << item.state;
    }
}

TEST(ServicePolicy, InterrogateAndDumpsPassWhileStartingAndOtherControlsDoNot) {
    const SERVICE_STATUS starting = Last(SERVICE_START_PENDING, 0);
    const SERVICE_STATUS running = Last(SERVICE_RUNNING, kAll);
    for (const DWORD control : {4U, 128U, 129U, 130U}) {
        EXPECT_EQ(JudgeControl(control, starting), ControlFate::kDeliver) << control;
        EXPECT_EQ(JudgeControl(control, Last(0, 0)), ControlFate::kDrop) << control;
    }
    for (const DWORD control : {0U, 2U, 11U, 127U, 131U, 255U, 0xFFFFFFFFU}) {
        EXPECT_EQ(JudgeControl(control, starting), ControlFate::kDrop) << control;
        EXPECT_EQ(JudgeControl(control, running), ControlFate::kDeliver) << control;
    }
}

TEST(ServicePolicy, AReportIsToldWithMoreTimeAndAnErrorNumberThatSystemdTakesForOne) {
    SERVICE_STATUS status = Last(SERVICE_START_PENDING, kAll);
    status.dwWaitHint = 4000;
    EXPECT_EQ(NotificationText(status), "STATUS=init\nEXTEND_TIMEOUT_USEC=4000000");
    status = Last(SERVICE_STOPPED, kAll);
    status.dwWin32ExitCode = static_cast<DWORD>(-1);
    EXPECT_EQ(NotificationText(status), "STATUS=stopped (exit code -1)");
}

TEST(ServicePolicy, AFailureStaysOneAsExitStatus) {
    EXPECT_EQ(ExitStatusOf(0x105), 5);
    EXPECT_EQ(ExitStatusOf(0x100), 255);
    EXPECT_EQ(ExitStatusOf(static_cast<DWORD>(-1)), 255);
}

TEST(ServicePolicy, TheServiceIsNamedByItsUnit) {
    EXPECT_EQ(ServiceNameOf("agent@two.service"), "agent@two");
    for (const char* other : {"session-1.scope", ".service", ""}) {
        EXPECT_EQ(ServiceNameOf(other), "zelk_agent");
    }
}

}  // namespace
