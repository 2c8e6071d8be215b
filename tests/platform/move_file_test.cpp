#include "platform/move_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "tests/support/scratch_folder.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

// The number of what keeps a file from being moved, or without `to` from being deleted at the next
// restart; 0 if nothing does.
int Move(const fs::path& from, const fs::path& to, DWORD flags) {
    return MoveFileExW(from.string(), to.string(), flags).value();
}

TEST(MoveFile, ReplacesAFileOnlyIfAskedToAndSaysWhyItCannot) {
    const ScratchFolder folder;
    const fs::path from = folder.Write("Schlüssel 1", "new");
    const fs::path to = folder.Write("to", "old");
    EXPECT_EQ(Move(from, to, 0), EEXIST);
    EXPECT_EQ(Move(from, to, MOVEFILE_REPLACE_EXISTING), 0);
    EXPECT_EQ(Move(from, to, MOVEFILE_REPLACE_EXISTING), ENOENT);
    (void)folder.Write("taken/by", "");
    EXPECT_EQ(Move(to, folder.Path() / "taken", MOVEFILE_REPLACE_EXISTING), EISDIR);
    for (const DWORD flags : {0U, 2U, MOVEFILE_DELAY_UNTIL_REBOOT + MOVEFILE_REPLACE_EXISTING}) {
        EXPECT_EQ(Move(to, {}, flags), EINVAL);
    }
    EXPECT_EQ(ReadFile(to), "new");
}

TEST(PendingDeletes, AreListedOnceEachAndOfFilesAlone) {
    const ScratchFolder folder;
    const auto list = [&folder](const char* name) {
        return Move(folder.Path() / name, {}, MOVEFILE_DELAY_UNTIL_REBOOT);
    };
    for (const char* name : {"tarvok.exe.old", "Schlüssel 1.old", "tarvok.exe.old"}) {
        (void)folder.Write(name, "");
        EXPECT_EQ(list(name), 0);
    }
    (void)folder.Write("two\nlines", "");
    EXPECT_EQ(list("two\nlines"), EINVAL);
    EXPECT_EQ(list("."), EINVAL);
    EXPECT_EQ(list("gone"), ENOENT);
    std::string boot;
    ASSERT_FALSE(CurrentBootId(boot));
    EXPECT_EQ(ReadFile(folder.Path() / ".pending-deletes"),
              boot + " Schlüssel 1.old\n" + boot + " tarvok.exe.old\n");
    EXPECT_THAT(DeletePendingFiles(folder.Path().string(), ""),
                testing::ElementsAre(HasSubstr("the id of this boot is not known")));
    EXPECT_TRUE(fs::exists(folder.Path() / "tarvok.exe.old"));
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

}  // namespace
