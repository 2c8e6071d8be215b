#include "zelka_core/log/log_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/scratch_folder.h"
#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

// The log file is one for the process and closes for good, so each test runs in a child process.
class LogFileDeathTest : public testing::Test {
  protected:
    static wxString Folder(const ScratchFolder& scratch) {
        return FromUtf8((scratch.Path() / "log").string());
    }
    const ScratchFolder scratch;
};

TEST_F(LogFileDeathTest, LinesThatStillWaitAtTheEndGoToStandardError) {
    EXPECT_EXIT(
        {
            WriteLogLine("one");
            WriteLogLine("two");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "one\ntwo\n");
}

TEST_F(LogFileDeathTest, AFileThatCannotBeOpenedGivesItsLinesToStandardError) {
    EXPECT_EXIT(
        {
            WriteLogLine("before");
            const bool open = OpenLogFile("/proc/nowhere", "x");
            WriteLogLine("after");
            std::exit(open ? 1 : 0);
        },
        testing::ExitedWithCode(0), "/proc/nowhere.*\nbefore\nafter\n");
}

TEST_F(LogFileDeathTest, APipeInThePlaceOfTheFileIsRefusedAndNotWaitedFor) {
    (void)scratch.Write("log/unused", "");
    ASSERT_EQ(mkfifo((scratch.Path() / "log/x.log").c_str(), 0600), 0);
    EXPECT_EXIT(
        {
            WriteLogLine("before");
            const bool open = OpenLogFile(Folder(scratch), "x");
            std::exit(open ? 1 : 0);
        },
        testing::ExitedWithCode(0), "is a pipe and no log file\nbefore\n");
}

TEST_F(LogFileDeathTest, ADiskThatIsFullGivesItsLinesToStandardErrorAndSaysWhyOnce) {
    (void)scratch.Write("log/unused", "");
    std::filesystem::create_symlink("/dev/full", scratch.Path() / "log/x.log");
    EXPECT_EXIT(
        {
            (void)OpenLogFile(Folder(scratch), "x");
            const std::string line(10'000, 'x');
            WriteLogLine(line);
            WriteLogLine("the last line");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "No space left on device");
}

TEST_F(LogFileDeathTest, WaitingLinesComeFirstAndASeparatorInTheNameIsNoFolder) {
    EXPECT_EXIT(
        {
            WriteLogLine("early");
            (void)OpenLogFile(Folder(scratch), "a/b");
            WriteLogLine("late");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(ReadFile(scratch.Path() / "log/a_b.log"), "early\nlate\n");
}

TEST_F(LogFileDeathTest, GrowsNoFurtherThanTenMebibytesAndKeepsFiveOlderFiles) {
    EXPECT_EXIT(
        {
            (void)OpenLogFile(Folder(scratch), "x");
            const std::string line(1 << 20, 'x');
            for (int i = 0; i < 70; ++i) {
                WriteLogLine(line);
            }
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    std::size_t files = 0;
    for (const auto& file : std::filesystem::directory_iterator(scratch.Path() / "log")) {
        EXPECT_LE(file.file_size(), 10U << 20U) << file.path();
        EXPECT_EQ(file.status().permissions(), std::filesystem::perms(0600)) << file.path();
        ++files;
    }
    EXPECT_EQ(files, 6U);
}

}  // namespace
}  // namespace ZelkaCore
