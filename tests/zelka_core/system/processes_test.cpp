#include "zelka_core/system/processes.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/pidfd.h"
#include "platform/scoped_fd.h"
#include "tests/support/captured_log.h"
#include "tests/support/scratch_folder.h"
#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

constexpr int kGenerousMs = 60'000;

// A program that runs beside the test, started in `folder`, and is killed and collected at its end.
// What it reads never comes.
class Companion {
  public:
    Companion(const std::string& program, std::vector<std::string> argv,
              const std::string& folder = "/") {
        ScopedFd reading;
        ScopedFd writing;
        MakePipe(reading, m_input);
        MakePipe(m_output, writing);
        posix_spawn_file_actions_t actions;
        EXPECT_EQ(posix_spawn_file_actions_init(&actions), 0);
        EXPECT_EQ(posix_spawn_file_actions_addchdir_np(&actions, folder.c_str()), 0);
        EXPECT_EQ(posix_spawn_file_actions_adddup2(&actions, reading.Get(), STDIN_FILENO), 0);
        EXPECT_EQ(posix_spawn_file_actions_adddup2(&actions, writing.Get(), STDOUT_FILENO), 0);
        std::vector<char*> pointers(argv.size() + 1);
        std::transform(argv.begin(), argv.end(), pointers.begin(),
                       [](std::string& argument) { return argument.data(); });
        EXPECT_EQ(posix_spawn(&m_pid, program.c_str(), &actions, nullptr, pointers.data(), environ),
                  0);
        (void)posix_spawn_file_actions_destroy(&actions);
        m_process.Reset(pidfd_open(m_pid, 0));
        EXPECT_TRUE(m_process.IsOpen());
    }
    ~Companion() {
        // Not by its number, which may be another process's once it was collected.
        siginfo_t status = {};
        (void)pidfd_send_signal(m_process.Get(), SIGKILL, nullptr, 0);
        (void)waitid(P_PIDFD, static_cast<id_t>(m_process.Get()), &status, WEXITED);
    }
    Companion(const Companion&) = delete;
    Companion& operator=(const Companion&) = delete;

    [[nodiscard]] unsigned long Pid() const { return static_cast<unsigned long>(m_pid); }

    // The next line that it writes, without the line end.
    [[nodiscard]] std::string ReadLine() const {
        std::string line;
        char c = 0;
        while (read(m_output.Get(), &c, 1) == 1 && c != '\n') {
            line += c;
        }
        return line;
    }

    [[nodiscard]] bool WaitForItsEnd() const {
        pollfd ended = {m_process.Get(), POLLIN, 0};
        return poll(&ended, 1, kGenerousMs) == 1;
    }

  private:
    static void MakePipe(ScopedFd& reading, ScopedFd& writing) {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        reading.Reset(ends[0]);
        writing.Reset(ends[1]);
    }

    pid_t m_pid = 0;
    ScopedFd m_process;
    ScopedFd m_input;
    ScopedFd m_output;
};

Companion Shell(const std::string& script) {
    return {"/bin/sh", {"sh", "-c", script}};
}

bool IsOurChild(unsigned long pid) {
    siginfo_t status = {};
    return waitid(P_PID, static_cast<id_t>(pid), &status, WEXITED | WNOHANG | WNOWAIT) == 0;
}

TEST(ReadPidFile, TakesOneNumberWithBlanksAroundItAndNothingElse) {
    const ScratchFolder folder;
    const auto read = [&](const std::string& content) {
        return ReadPidFile(FromUtf8(folder.Write("some.pid", content).string()));
    };
    EXPECT_EQ(read("4711"), 4711U);
    EXPECT_EQ(read(" 4711 \r\n"), 4711U);
    EXPECT_EQ(read("2147483647"), 2147483647U);
    for (const std::string bad : {"", "\n", "0", "-1", "+1", "0x10", "12 13", "12a", "nginx",
                                  "2147483648", "18446744073709551617", "1.0"}) {
        EXPECT_EQ(read(bad), 0U) << bad;
    }
    EXPECT_EQ(read(std::string("12\0", 3)), 0U);
    EXPECT_EQ(read("12" + std::string(100, '\n')), 0U);
}

TEST(ReadPidFile, NeitherAMissingFileNorAFolderNorAPipeHoldsAPid) {
    const ScratchFolder folder;
    const fs::path pipe = folder.Path() / "pipe.pid";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const fs::path& path : {folder.Path() / "none.pid", folder.Path(), pipe}) {
        EXPECT_EQ(ReadPidFile(FromUtf8(path.string())), 0U) << path;
    }
}

TEST(GetCommandLineW, BeginsWithTheRealPathWhateverNameTheProgramWasStartedBy) {
    const ScratchFolder folder;
    const std::string program = (folder.Path() / "com panion").string();
    fs::copy_file("/bin/sh", program);
    fs::create_symlink("com panion", folder.Path() / "link");
    const std::string script = "echo ready; read line";
    const Companion companion("./link", {"name", "-c", script, "\xC3\xA4", "\xFF"},
                              folder.Path().string());
    ASSERT_EQ(companion.ReadLine(), "ready");
    const std::string expected = program + " -c " + script + " ";
    EXPECT_THAT(ToUtf8(GetCommandLineW(companion.Pid())), StartsWith(expected));

    ASSERT_TRUE(fs::remove(program));
    EXPECT_THAT(ToUtf8(GetCommandLineW(companion.Pid())), StartsWith(expected));
}

TEST(GetCommandLineW, ToleratesATitleThatTheProcessWroteOverIt) {
    const Companion companion(
        "/usr/bin/perl", {"/opt/stranger/perl", "-e",
                          R"($| = 1; $0 = "nginx: master"; print "ready\n"; readline(STDIN))"});
    ASSERT_EQ(companion.ReadLine(), "ready");
    EXPECT_EQ(GetCommandLineW(companion.Pid()), "/usr/bin/perl");
}

TEST(GetCommandLineW, KeepsANameThatOnlyLooksDeleted) {
    const ScratchFolder folder;
    const std::string program = (folder.Path() / "sh (deleted)").string();
    fs::copy_file("/bin/sh", program);
    const Companion companion(program, {"sh", "-c", "echo ready; read line"});
    ASSERT_EQ(companion.ReadLine(), "ready");
    EXPECT_EQ(ToUtf8(GetCommandLineW(companion.Pid())), program + " -c echo ready; read line");
}

TEST(GetCommandLineW, IsEmptyForAProcessThatHasEndedOrNeverWas) {
    const Companion companion = Shell("exit 0");
    ASSERT_TRUE(companion.WaitForItsEnd());
    EXPECT_EQ(GetCommandLineW(companion.Pid()), "");
    EXPECT_EQ(GetCommandLineW(0), "");
    EXPECT_EQ(GetCommandLineW(1UL << 40U), "");
}

TEST(KillProcess, EndsAProcessThatListensAndCollectsAChild) {
    const Companion companion =
        Shell("trap 'echo bye; exit' TERM; echo ready; while :; do read x; done");
    ASSERT_EQ(companion.ReadLine(), "ready");
    EXPECT_TRUE(KillProcess(companion.Pid(), kGenerousMs));
    EXPECT_EQ(companion.ReadLine(), "bye");
    EXPECT_FALSE(IsOurChild(companion.Pid()));
    EXPECT_TRUE(KillProcess(companion.Pid(), -1)) << "it is not there any more";
}

TEST(KillProcess, KillsAProcessThatDoesNotListenOnceItsTimeIsUp) {
    const Companion companion = Shell("trap '' TERM; echo ready; exec sleep 1000");
    ASSERT_EQ(companion.ReadLine(), "ready");
    EXPECT_TRUE(KillProcess(companion.Pid(), 20));
    EXPECT_FALSE(IsOurChild(companion.Pid()));
}

TEST(KillProcess, EndsAHaltedProcessByItsOwnHandler) {
    const Companion companion =
        Shell("trap 'echo bye; exit' TERM; echo ready; kill -STOP $$; read x");
    ASSERT_EQ(companion.ReadLine(), "ready");
    siginfo_t status = {};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(companion.Pid()), &status, WSTOPPED), 0);
    EXPECT_TRUE(KillProcess(companion.Pid(), kGenerousMs));
    EXPECT_EQ(companion.ReadLine(), "bye");
}

TEST(KillProcess, AProcessThatItsParentNeverCollectsIsGoneNonetheless) {
    const Companion parent = Shell("sleep 1000 >/dev/null & echo $!; exec sleep 1000");
    const unsigned long grandchild = std::stoul(parent.ReadLine());
    EXPECT_TRUE(KillProcess(grandchild, kGenerousMs));
    EXPECT_TRUE(KillProcess(grandchild, kGenerousMs)) << "a zombie";
}

TEST(KillProcess, RefusesWhatMustNotBeStoppedAndSaysSo) {
    const CapturedLog log;
    EXPECT_FALSE(KillProcess(0, -1));
    EXPECT_FALSE(KillProcess(static_cast<unsigned long>(getpid()), -1));
    EXPECT_FALSE(KillProcess((1UL << 32U) + 2, -1));
    EXPECT_EQ(log.Lines().size(), 3U);
}

struct Outcome {
    bool ran = false;
    wxString output = "untouched";
    unsigned long exitCode = 77;
    wxString errors = "untouched";
};

Outcome RunProgram(const wxString& program, const wxString& arguments) {
    Outcome outcome;
    outcome.ran = Execute(program, arguments, outcome.output, outcome.exitCode, outcome.errors);
    return outcome;
}

TEST(Execute, GivesBothOutputsAndTheExitCode) {
    const Outcome exited = RunProgram("/bin/sh", " -c \"echo out; echo err >&2; exit 3\"");
    EXPECT_TRUE(exited.ran);
    EXPECT_EQ(exited.output, "out\n");
    EXPECT_EQ(exited.errors, "err\n");
    EXPECT_EQ(exited.exitCode, 3U);

    const Outcome killed = RunProgram("/bin/sh", "-c 'kill${IFS}-9${IFS}$$'");
    EXPECT_TRUE(killed.ran);
    EXPECT_NE(killed.exitCode, 0U) << "single quotes are no quotes";
    EXPECT_EQ(RunProgram("/bin/sh", "-c \"kill -9 $$\"").exitCode, 128U + SIGKILL);
}

TEST(Execute, SplitsArgumentsAtBlanksOutsideDoubleQuotes) {
    const Outcome outcome = RunProgram(
        "/usr/bin/printf", FromUtf8("  <%s>\t-p \"/a b/\" -c \"\" x\"y z\"\\ 'q r' \"\xC3\xA4\""));
    EXPECT_EQ(ToUtf8(outcome.output), "<-p></a b/><-c><><xy z\\><'q><r'><\xC3\xA4>");
}

TEST(Execute, ReadsMegabytesOnBothOutputsKeepsTheFirstOfEachAndTellsWhatItDropped) {
    const CapturedLog log;
    const Outcome outcome = RunProgram("/bin/sh",
                                       "-c \"head -c 3000000 /dev/zero >&2; echo -n x; yes "
                                       "\xC3\xA4 | tr -d '\\n' | head -c 4000000\"");
    ASSERT_TRUE(outcome.ran);
    EXPECT_EQ(ToUtf8(outcome.output).size(), 1'048'576U - 1) << "no half of a character";
    EXPECT_EQ(outcome.output[1], wxUniChar(0xE4));
    EXPECT_EQ(outcome.errors.length(), 1'048'576U);
    ASSERT_EQ(log.Lines().size(), 2U);
    EXPECT_THAT(log.Lines()[0], HasSubstr("2951426 bytes of its standard output were dropped"));
}

TEST(Execute, DoesNotWaitForWhatTheProgramLeavesBehind) {
    const Outcome outcome = RunProgram("/bin/sh", "-c \"sleep 1000 & echo $!\"");
    ASSERT_TRUE(outcome.ran);
    EXPECT_TRUE(KillProcess(std::stoul(ToUtf8(outcome.output)), kGenerousMs));
}

TEST(Execute, HandsDownNoDescriptor) {
    const ScopedFd leaky(fcntl(STDERR_FILENO, F_DUPFD, 100));  // not closed by exec
    ASSERT_TRUE(leaky.IsOpen());
    const Outcome outcome =
        RunProgram("/bin/sh", "-c \"ls /proc/$$/fd; readlink /proc/$$/fd/0; exit\"");
    EXPECT_EQ(ToUtf8(outcome.output), "0\n1\n2\n/dev/null\n");
}

TEST(Execute, HandsDownNoSignalSetting) {
    Outcome outcome;
    std::thread([&] {
        sigset_t all;
        (void)sigfillset(&all);
        (void)pthread_sigmask(SIG_SETMASK, &all, nullptr);
        (void)std::signal(SIGUSR1, SIG_IGN);
        outcome = RunProgram("/bin/grep", "-E Sig(Blk|Ign) /proc/self/status");
        (void)std::signal(SIGUSR1, SIG_DFL);
    }).join();
    // The C library keeps 32 and 33 for itself and has them ignored in every program it spawns.
    EXPECT_THAT(ToUtf8(outcome.output),
                testing::AnyOf("SigBlk:\t0000000000000000\nSigIgn:\t0000000180000000\n",
                               "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n"));
}

TEST(Execute, LeavesEverythingUntouchedWhenTheProgramCannotBeStartedAndSaysWhy) {
    const CapturedLog log;
    for (const auto& [program, arguments] : {std::pair<wxString, wxString>{"/nowhere/nginx", ""},
                                             {"/etc", ""},
                                             {"/bin/echo", "\"unclosed"},
                                             {"/bin/echo", wxString("a\0b", 3)}}) {
        const Outcome outcome = RunProgram(program, arguments);
        EXPECT_FALSE(outcome.ran) << program;
        EXPECT_EQ(outcome.output + outcome.errors, "untoucheduntouched");
        EXPECT_EQ(outcome.exitCode, 77U);
    }
    ASSERT_EQ(log.Lines().size(), 4U);
    EXPECT_THAT(log.Lines()[0], HasSubstr("/nowhere/nginx could not be run: No such file"));
    EXPECT_THAT(log.Lines()[2], HasSubstr("quote"));
}

}  // namespace
}  // namespace ZelkaCore
