#include "zelka_core/system/secure_path.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/captured_log.h"
#include "tests/support/scratch_folder.h"
#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

fs::perms Mode(const fs::path& path) {
    return fs::status(path).permissions();
}

bool IsSecured(const fs::path& path) {
    return IsSecuredFileOrDirectory(FromUtf8(path.string()));
}

void Secure(const fs::path& path, bool recursive) {
    SecureFileOrDirectory(FromUtf8(path.string()), recursive);
}

TEST(SecurePath, AFolderOfAnyModeIsSecuredAndRecursivelyWhatIsBelowItButNothingBehindALink) {
    const ScratchFolder folder;
    const fs::path outside = folder.Write("outside", "");
    const fs::path file = folder.Write("work/a/file", "");
    const fs::path work = folder.Path() / "work";
    fs::create_symlink(outside, work / "a/link");
    fs::permissions(outside, fs::perms{0644});
    fs::permissions(file, fs::perms{0644});
    for (const unsigned mode : {0755U, 0600U, 0000U, 02700U, 0701U}) {
        fs::permissions(work, fs::perms{mode});
        EXPECT_FALSE(IsSecured(work)) << std::oct << mode;
        Secure(work, false);
        EXPECT_TRUE(IsSecured(work / "")) << std::oct << mode;
        EXPECT_EQ(Mode(work), fs::perms{0700});
    }
    EXPECT_EQ(Mode(file), fs::perms{0644});
    Secure(work, true);
    EXPECT_TRUE(IsSecured(work / "a") && IsSecured(file));
    EXPECT_EQ(Mode(outside), fs::perms{0644});
}

TEST(SecurePath, NeitherALinkNorAPipeNorWhatIsNotThereIsSecuredWhichIsTold) {
    const ScratchFolder folder;
    const fs::path file = folder.Write("target/file", "");
    const fs::path target = file.parent_path();
    const fs::path folderLink = folder.Path() / "link to folder";
    const fs::path fileLink = folder.Path() / "link to file";
    const fs::path pipe = folder.Path() / "pipe";
    fs::create_symlink(target, folderLink);
    fs::create_symlink(file, fileLink);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    fs::permissions(target, fs::perms{0700});
    fs::permissions(file, fs::perms{0644});
    for (const fs::path& path :
         {folderLink, folderLink / "", fileLink, pipe, folder.Path() / "none"}) {
        const CapturedLog log;
        Secure(path, true);
        EXPECT_FALSE(IsSecured(path)) << path;
        EXPECT_THAT(log.Lines(), testing::SizeIs(1)) << path;
    }
    EXPECT_EQ(Mode(file), fs::perms{0644});
}

TEST(SecurePath, WhatBelongsToSomebodyElseIsNotSecuredUntilItIsTakenOver) {
    const ScratchFolder folder;
    const fs::path file = folder.Write("file", "");
    fs::permissions(file, fs::perms{0600});
    if (chown(file.c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    EXPECT_FALSE(IsSecured(file));
    Secure(file, false);
    EXPECT_TRUE(IsSecured(file));
}

}  // namespace
}  // namespace ZelkaCore
