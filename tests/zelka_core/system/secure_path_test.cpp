#include "zelka_core/system/secure_path.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/support/captured_log.h"
#include "tests/support/scratch_folder.h"
#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

namespace fs = std::filesystem;

void SetMode(const fs::path& path, mode_t mode) {
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
}

unsigned Mode(const fs::path& path) {
    return static_cast<unsigned>(fs::status(path).permissions());
}

bool IsSecured(const std::string& path) {
    return IsSecuredFileOrDirectory(FromUtf8(path));
}

void Secure(const std::string& path, bool recursive) {
    SecureFileOrDirectory(FromUtf8(path), recursive);
}

TEST(SecurePath, AFolderOfAnyModeBecomesTheOwnersAloneAndWhatIsBelowItStays) {
    const ScratchFolder folder;
    const fs::path work = folder.Write("work/file", "").parent_path();
    SetMode(work / "file", 0644);
    for (const mode_t mode : {0755U, 0600U, 0000U, 02700U, 0701U}) {
        SetMode(work, mode);
        EXPECT_FALSE(IsSecured(work.string())) << std::oct << mode;
        Secure(work.string(), false);
        EXPECT_TRUE(IsSecured(work.string() + "/")) << std::oct << mode;
        EXPECT_EQ(Mode(work), 0700U);
    }
    EXPECT_EQ(Mode(work / "file"), 0644U);
}

TEST(SecurePath, RecursivelyEverythingBelowIsSecuredButNothingBehindALink) {
    const ScratchFolder folder;
    const fs::path outside = folder.Write("outside", "");
    const fs::path file = folder.Write("work/a/b/file", "");
    const fs::path work = folder.Path() / "work";
    fs::create_symlink(outside, work / "a/link");
    SetMode(outside, 0644);
    SetMode(work, 0777);
    SetMode(work / "a", 0777);
    SetMode(file, 0755);
    const CapturedLog log;
    Secure(work.string(), true);
    for (const fs::path& path : {work, work / "a", work / "a/b", file}) {
        EXPECT_TRUE(IsSecured(path.string())) << path;
    }
    EXPECT_EQ(Mode(outside), 0644U);
    EXPECT_EQ(log.Lines().size(), 0U);
}

TEST(SecurePath, ALinkIsNeitherSecuredNorFollowed) {
    const ScratchFolder folder;
    const fs::path link = folder.Path() / "link";
    for (const bool isFolder : {true, false}) {
        const fs::path target = folder.Write("target/file", "").parent_path();
        fs::create_symlink(isFolder ? target : target / "file", link);
        SetMode(target, 0755);
        SetMode(target / "file", 0644);
        for (const std::string& name : {link.string(), link.string() + "/"}) {
            const CapturedLog log;
            Secure(name, true);
            EXPECT_FALSE(IsSecured(name));
            EXPECT_EQ(log.Lines().size(), 1U);
        }
        EXPECT_EQ(Mode(target), 0755U);
        EXPECT_EQ(Mode(target / "file"), 0644U);
        ASSERT_TRUE(fs::remove(link));
    }
}

TEST(SecurePath, WhatBelongsToSomebodyElseIsNotSecuredUntilItIsTakenOver) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    const ScratchFolder folder;
    const fs::path file = folder.Write("file", "");
    SetMode(file, 0600);
    ASSERT_EQ(chown(file.c_str(), 65534, 65534), 0);
    EXPECT_FALSE(IsSecured(file.string()));
    Secure(file.string(), false);
    EXPECT_TRUE(IsSecured(file.string()));
}

TEST(SecurePath, WhatCannotBeSecuredIsTold) {
    const ScratchFolder folder;
    const std::string pipe = (folder.Path() / "pipe").string();
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {pipe, pipe + ".none"}) {
        const CapturedLog log;
        Secure(path, false);
        EXPECT_FALSE(IsSecured(path));
        ASSERT_EQ(log.Lines().size(), 1U);
        EXPECT_NE(log.Lines()[0].find(path), std::string::npos);
    }
}

}  // namespace
}  // namespace ZelkaCore
