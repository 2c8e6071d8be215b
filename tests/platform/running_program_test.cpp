#include "platform/running_program.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <utility>

namespace {

using Descriptor = RunningProgram::Descriptor;

std::unique_ptr<RunningProgram> StartShell(const std::string& script, std::string input) {
    ProgramStart start;
    start.arguments = {"/bin/sh", "-c", script};
    start.hasOwnGroup = true;
    start.input = std::move(input);
    std::unique_ptr<RunningProgram> program;
    EXPECT_EQ(RunningProgram::Start(std::move(start), program), std::error_code());
    return program;
}

void WaitFor(int descriptor) {
    pollfd waited{descriptor, POLLIN, 0};
    EXPECT_EQ(poll(&waited, 1, 60'000), 1);
}

TEST(RunningProgram, IsCollectedOnceAfterItsEndAndThenHoldsNothingAndKillsNobody) {
    const auto program = StartShell("echo started; sleep 1000", std::string(1'000'000, 'x'));
    ProgramEnd end;
    WaitFor(program->Get(Descriptor::kOutput));
    EXPECT_EQ(program->Collect(end), std::errc::resource_unavailable_try_again);
    EXPECT_EQ(program->Kill(), std::error_code());
    WaitFor(program->Get(Descriptor::kEnd));
    EXPECT_EQ(program->Kill(), std::error_code()) << "it has ended, but is there";
    EXPECT_EQ(program->Collect(end), std::error_code());
    EXPECT_EQ(std::pair(end.code, end.isSignal), std::pair(SIGKILL, true));
    EXPECT_EQ(end.output.content, "started\n");
    for (const auto kind :
         {Descriptor::kEnd, Descriptor::kOutput, Descriptor::kErrors, Descriptor::kInput}) {
        EXPECT_EQ(program->Get(kind), -1);
    }
    EXPECT_EQ(program->Kill(), std::error_code());
    EXPECT_TRUE(program->Collect(end));
}

TEST(RunningProgram, ThatIsGivenUpLeavesNoChild) {
    StartShell("trap '' TERM; sleep 1000", "").reset();
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

}  // namespace
