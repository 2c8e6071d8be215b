#include "zelka_core/log/log_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/scratch_folder.h"
#include "zelka_core/log/log_text.h"
#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

TEST(LogText, WritesOutWhatATerminalWouldObeyAndNothingElse) {
    EXPECT_EQ(LogText("a\tb\nc\r\x1b[2J\x7f\x01"), "a\tb\n\tc\\x0d\\x1b[2J\\x7f\\x01");
    EXPECT_EQ(LogText("\u0080\u009f\u2028\u202e\u202c\u2066\u2069"),
              "\\u0080\\u009f\\u2028\\u202e\\u202c\\u2066\\u2069");
    const std::string kept = "\u00a0ä\u2027\u202f\u2065\u206a€😀\\x1b \xe2\x80 \xe2 \xc2";
    EXPECT_EQ(LogText(kept), kept);
    EXPECT_EQ(LogText(std::string(1, '\0')), "\\x00");
}

TEST(LogText, OfAScriptEndsAtTheLastWholeCharacterThatFits) {
    const std::string fits((1 << 16) - 1, 'x');
    EXPECT_EQ(BoundedLogText(fits + "y"), fits + "y");
    EXPECT_EQ(BoundedLogText(fits + "äöü"), fits + " ... (6 bytes more)");
}

// The log file is one for the process and closes for good, so each test runs in a child process.
class LogFileDeathTest : public testing::Test {
  protected:
    const ScratchFolder scratch;
    const fs::path folder = scratch.Path() / "log";
};

TEST_F(LogFileDeathTest, LinesFromBeforeComeFirstAndThoseThatNoFileTakesGoToStandardError) {
    fs::create_directory(folder);
    ASSERT_EQ(mkfifo((folder / "pipe.log").c_str(), 0600), 0);
    fs::create_symlink("/dev/full", folder / "full.log");
    for (const auto& [path, name, opens, errors] :
         {std::tuple<fs::path, const char*, bool, const char*>{"", "", false, "one\ntwo\n"},
          {"/proc/nowhere", "x", false, "[^\n]*/proc/nowhere[^\n]*\none\ntwo\n"},
          {folder, "pipe", false, "[^\n]*is a pipe and no log file\none\ntwo\n"},
          {folder, "full", true, "[^\n]*No space left on device[^\n]*\none\ntwo\n"},
          {folder, "a/b", true, ""}}) {
        const auto run = [&path = path, &name = name] {
            WriteLogLine("one");
            const bool open = !path.empty() && OpenLogFile(FromUtf8(path.string()), name);
            WriteLogLine("two");
            std::exit(open ? 0 : 1);
        };
        EXPECT_EXIT(run(), testing::ExitedWithCode(opens ? 0 : 1), std::string("^") + errors + "$");
    }
    EXPECT_EQ(ReadFile(folder / "a_b.log"), "one\ntwo\n") << "a separator makes no folder";
}

TEST_F(LogFileDeathTest, GrowsNoFurtherThanTenMebibytesAndKeepsFiveOlderFiles) {
    const auto run = [&] {
        (void)OpenLogFile(FromUtf8(folder.string()), "x");
        for (int i = 0; i < 70; ++i) {
            WriteLogLine(std::string(1 << 20, 'x'));
        }
        std::exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "^$");
    std::size_t files = 0;
    for (const auto& file : fs::directory_iterator(folder)) {
        EXPECT_LE(file.file_size(), 10U << 20U) << file.path();
        EXPECT_EQ(file.status().permissions(), fs::perms(0600)) << file.path();
        ++files;
    }
    EXPECT_EQ(files, 6U);
}

}  // namespace
}  // namespace ZelkaCore
