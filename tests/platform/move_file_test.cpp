#include "platform/move_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "tests/support/scratch_folder.h"
#include "zelka_core/text.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

std::wstring Wide(const fs::path& path) {
    return ZelkaCore::FromUtf8(path.string()).ToStdWstring();
}

bool Move(const fs::path& from, const fs::path& to) {
    return MoveFileExW(Wide(from).c_str(), Wide(to).c_str(), MOVEFILE_REPLACE_EXISTING);
}

bool DeleteAtRestart(const fs::path& path) {
    return MoveFileExW(Wide(path).c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
}

TEST(MoveFile, ReplacesAFileOnlyIfAskedToAndSaysWhyItCannot) {
    const ScratchFolder folder;
    const fs::path from = folder.Write("Schlüssel 1", "new");
    const fs::path to = folder.Write("to", "old");
    EXPECT_FALSE(MoveFileExW(Wide(from).c_str(), Wide(to).c_str(), 0));
    EXPECT_EQ(GetLastError(), DWORD{EEXIST});
    EXPECT_TRUE(Move(from, to));
    EXPECT_EQ(ReadFile(to), "new");
    EXPECT_FALSE(Move(from, to));
    EXPECT_EQ(GetLastError(), DWORD{ENOENT});
    fs::create_directories(folder.Path() / "taken/by");
    EXPECT_FALSE(Move(to, folder.Path() / "taken"));
    EXPECT_EQ(GetLastError(), DWORD{EISDIR});
    for (const DWORD flags : {0U, 2U, MOVEFILE_DELAY_UNTIL_REBOOT + MOVEFILE_REPLACE_EXISTING}) {
        EXPECT_FALSE(MoveFileExW(Wide(to).c_str(), nullptr, flags));
        EXPECT_EQ(GetLastError(), DWORD{EINVAL});
    }
    EXPECT_EQ(ReadFile(to), "new");
}

TEST(PendingDeletes, GoInTheNextBootAndNotInThisOne) {
    const ScratchFolder folder;
    const fs::path list = folder.Path() / ".pending-deletes";
    const fs::path first = folder.Write("tarvok.exe.old", "");
    const fs::path second = folder.Write("Schlüssel 1.old", "");
    for (const fs::path& path : {first, second, first}) {
        ASSERT_TRUE(DeleteAtRestart(path));
    }
    const std::string boot = CurrentBootId();
    EXPECT_EQ(ReadFile(list), boot + " Schlüssel 1.old\n" + boot + " tarvok.exe.old\n");
    EXPECT_THAT(DeletePendingFiles(folder.Path().string(), boot), IsEmpty());
    EXPECT_TRUE(fs::exists(first) && fs::exists(second) && fs::exists(list));
    EXPECT_THAT(DeletePendingFiles(folder.Path().string(), "the-next-boot"), IsEmpty());
    EXPECT_TRUE(fs::is_empty(folder.Path()));
    EXPECT_THAT(DeletePendingFiles(folder.Path().string(), ""), IsEmpty());
}

TEST(PendingDeletes, OfAnyContentDeleteNothingOutsideOfTheFolder) {
    const ScratchFolder folder;
    const fs::path outside = folder.Write("outside", "");
    const fs::path inside = folder.Path() / "in";
    (void)folder.Write("in/file", "");
    (void)folder.Write("in/folder/file", "");
    (void)folder.Write("in/.pending-deletes", "old ../outside\nold " + outside.string() +
                                                  "\nold ..\nold\n file\n\n" +
                                                  "old folder\nold file\nold gone\nnow kept\n");
    const auto problems = DeletePendingFiles(inside.string(), "now");
    ASSERT_EQ(problems.size(), 7U);
    EXPECT_THAT(problems.front(),
                HasSubstr("in/.pending-deletes: the line makes no sense: old .."));
    EXPECT_THAT(problems.back(), HasSubstr("in/folder cannot be deleted: Is a directory"));
    EXPECT_TRUE(fs::exists(outside) && fs::exists(inside / "folder/file"));
    EXPECT_FALSE(fs::exists(inside / "file"));
    EXPECT_EQ(ReadFile(inside / ".pending-deletes"), "old folder\nnow kept\n");
}

TEST(PendingDeletes, AreNotMadeOfWhatCannotBeListed) {
    const ScratchFolder folder;
    EXPECT_FALSE(DeleteAtRestart(folder.Path() / "gone"));
    EXPECT_EQ(GetLastError(), DWORD{ENOENT});
    for (const fs::path& path : {folder.Path(), folder.Write("two\nlines", "")}) {
        EXPECT_FALSE(DeleteAtRestart(path));
        EXPECT_EQ(GetLastError(), DWORD{EINVAL});
    }
    EXPECT_FALSE(fs::exists(folder.Path() / ".pending-deletes"));
}

}  // namespace
