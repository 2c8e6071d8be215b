#include "zelka_core/system/processes.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "tests/support/captured_log.h"
#include "tests/support/child_process.h"
#include "tests/support/scratch_folder.h"
#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr int kGenerousMs = 60'000;

ChildProcess Shell(const std::string& script, const std::string& program = "/bin/sh") {
    return ChildProcess(
        [&] { return execl(program.c_str(), "name", "-c", script.c_str(), nullptr) == 0; });
}

// Waits until a child of ours is in one of the states of waitid. False if there is no such child.
bool WaitFor(const ChildProcess& child, int states) {
    siginfo_t status = {};
    return waitid(P_PID, static_cast<id_t>(child.Pid()), &status, states | WNOWAIT) == 0;
}

TEST(GetCommandLineW, BeginsWithTheRealPathWhateverNameTheProgramWasStartedBy) {
    const ScratchFolder folder;
    const std::string program = (folder.Path() / "com p\u00e4nion (deleted)").string();
    fs::copy_file("/bin/sh", program);
    const fs::path link = folder.Path() / "link";
    fs::create_symlink(program, link);
    const ChildProcess companion = Shell("echo ready; read line # \xFF", link);
    ASSERT_EQ(companion.ReadLine(), "ready");
    const std::string expected = program + " -c echo ready; read line # \u00FF";
    EXPECT_EQ(ToUtf8(GetCommandLineW(companion.Pid())), expected);
    ASSERT_TRUE(fs::remove(program));
    EXPECT_EQ(ToUtf8(GetCommandLineW(companion.Pid())), expected);
}

TEST(KillProcess, EndsAProcessByItsOwnHandlerAndOneThatDoesNotListenOnceItsTimeIsUp) {
    const char* const listens = "trap 'echo bye; exit' TERM; echo ready; while :; do read x; done";
    const char* const doesNot = "trap '' TERM; echo ready; exec sleep 1000";
    for (const auto& [script, halted, patience, answer] :
         {std::tuple{listens, false, kGenerousMs, "bye"},
          {listens, true, kGenerousMs, "bye"},
          {doesNot, false, 20, ""}}) {
        const ChildProcess companion = Shell(script);
        ASSERT_EQ(companion.ReadLine(), "ready");
        if (halted) {
            ASSERT_EQ(kill(static_cast<pid_t>(companion.Pid()), SIGSTOP), 0);
            ASSERT_TRUE(WaitFor(companion, WSTOPPED));
        }
        EXPECT_TRUE(KillProcess(companion.Pid(), patience));
        EXPECT_EQ(companion.ReadLine(), answer);
        EXPECT_FALSE(WaitFor(companion, WEXITED | WNOHANG)) << "it was not collected";
    }
}

TEST(KillProcess, AProcessThatItsParentNeverCollectsIsGoneNonethelessAndHasNoCommandLine) {
    const ChildProcess parent = Shell("sleep 1000 >/dev/null & echo $!; exec sleep 1000");
    const unsigned long grandchild = std::stoul(parent.ReadLine());
    EXPECT_TRUE(KillProcess(grandchild, kGenerousMs));
    EXPECT_EQ(GetCommandLineW(grandchild), "") << "a zombie";
    EXPECT_TRUE(KillProcess(grandchild, kGenerousMs));
}

TEST(KillProcess, RefusesWhatMustNotBeStoppedAndSaysSo) {
    const CapturedLog log;
    for (const unsigned long pid : {0UL, static_cast<unsigned long>(getpid()), (1UL << 32U) + 2}) {
        EXPECT_FALSE(KillProcess(pid, -1)) << pid;
    }
    EXPECT_EQ(log.Lines().size(), 3U);
}

// Whether it ran, its outputs and its exit code.
std::vector<wxString> RunProgram(const wxString& program, const wxString& arguments) {
    wxString output = "untouched";
    wxString errors = "untouched";
    unsigned long exitCode = 77;
    const bool ran = Execute(program, arguments, output, exitCode, errors);
    return {ran ? "ran" : "not", output, errors, std::to_string(exitCode)};
}

TEST(Execute, SplitsArgumentsHandsDownNoDescriptorAndGivesBothOutputsAndTheExitCode) {
    const ScopedFd leaky(fcntl(STDERR_FILENO, F_DUPFD, 100));  // not closed by exec
    ASSERT_TRUE(leaky.IsOpen());
    EXPECT_THAT(RunProgram("/bin/sh", " -c \"echo out; echo err >&2; exit 3\""),
                ElementsAre("ran", "out\n", "err\n", "3"));
    EXPECT_THAT(RunProgram("/bin/sh", "-c \"kill -9 $$\""), ElementsAre("ran", "", "", "137"));
    EXPECT_THAT(RunProgram("/bin/sh", "-c \"ls /proc/$$/fd; readlink /proc/$$/fd/0; exit\""),
                ElementsAre("ran", "0\n1\n2\n/dev/null\n", "", "0"));
    EXPECT_THAT(RunProgram("/usr/bin/printf",
                           FromUtf8("  <%s>\t-p \"/a b/\" -c \"\" x\"y z\"\\ 'q r' \"\u00e4\"")),
                ElementsAre("ran", FromUtf8("<-p></a b/><-c><><xy z\\><'q><r'><\u00e4>"), "", "0"));
}

TEST(Execute, ReadsMegabytesOnBothOutputsKeepsTheFirstOfEachAndTellsWhatItDropped) {
    const CapturedLog log;
    const auto outcome = RunProgram("/bin/sh",
                                    "-c \"head -c 3000000 /dev/zero >&2; echo -n x; yes "
                                    "\xC3\xA4 | tr -d '\\n' | head -c 4000000\"");
    EXPECT_EQ(ToUtf8(outcome[1]).size(), 1'048'576U - 1) << "no half of a character";
    EXPECT_EQ(outcome[1].Left(2), FromUtf8("x\u00e4"));
    EXPECT_EQ(outcome[2].length(), 1'048'576U);
    EXPECT_THAT(log.Lines(), ElementsAre(HasSubstr("2951426 bytes of its standard output were"),
                                         HasSubstr("standard error")));
}

TEST(Execute, DoesNotWaitForWhatTheProgramLeavesBehind) {
    const wxString left = RunProgram("/bin/sh", "-c \"sleep 1000 & echo $!\"")[1];
    EXPECT_TRUE(KillProcess(std::stoul(ToUtf8(left)), kGenerousMs));
}

TEST(Execute, HandsDownNoSignalSetting) {
    std::thread([] {
        sigset_t all;
        (void)sigfillset(&all);
        (void)pthread_sigmask(SIG_SETMASK, &all, nullptr);
        (void)std::signal(SIGUSR1, SIG_IGN);
        // The C library keeps 32 and 33 for itself and has them ignored in every program it spawns.
        EXPECT_THAT(ToUtf8(RunProgram("/bin/grep", "-E Sig(Blk|Ign) /proc/self/status")[1]),
                    testing::MatchesRegex("SigBlk:\t0{16}\nSigIgn:\t(0{16}|0{7}180{7})\n"));
        (void)std::signal(SIGUSR1, SIG_DFL);
    }).join();
}

TEST(Execute, LeavesEverythingUntouchedWhenTheProgramCannotBeStartedAndSaysWhy) {
    for (const auto& [program, arguments, reason] :
         {std::tuple<wxString, wxString, const char*>{"/nowhere/nginx", "", "No such file"},
          {"/etc", "", "/etc could not be run: "},
          {"/bin/echo", "\"unclosed", "quote"},
          {"/bin/echo", wxString("a\0b", 3), "null character"}}) {
        const CapturedLog log;
        EXPECT_THAT(RunProgram(program, arguments),
                    ElementsAre("not", "untouched", "untouched", "77"));
        EXPECT_THAT(log.Lines(), ElementsAre(HasSubstr(reason)));
    }
}

}  // namespace
}  // namespace ZelkaCore
