#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "platform/service.h"

namespace {

// As if the service manager had run that process.
void SetStart(const std::string& process) {
    ASSERT_EQ(setenv("INVOCATION_ID", "a start", 1), 0);
    ASSERT_EQ(setenv("SYSTEMD_EXEC_PID", process.c_str(), 1), 0);
}

}  // namespace

TEST(ServiceStart, ItsNameIsForWhatTheManagerRunsAndNotForWhatThatRunsLater) {
    SetStart(std::to_string(getpid()));
    EXPECT_EQ(NameOfServiceStart(), "a start");
    SetStart(std::to_string(getppid()));  // a shell
    EXPECT_EQ(NameOfServiceStart(), "a start");
    SetStart("1");
    EXPECT_EQ(NameOfServiceStart(), "");
    ASSERT_EQ(unsetenv("SYSTEMD_EXEC_PID"), 0);
    EXPECT_EQ(NameOfServiceStart(), "");
    ASSERT_EQ(unsetenv("INVOCATION_ID"), 0);
    EXPECT_EQ(NameOfServiceStart(), "");
}
