#include "tests/zelka_core/archive/unzip_case.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "tests/support/child_process.h"

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::SizeIs;
using testing::UnorderedElementsAre;
using namespace std::string_view_literals;

namespace ZelkaCore {
namespace {

TEST_F(Unzip, DamagedEntryFailsAndLeavesTheOldFileAndTheEntriesBeforeIt) {
    m_scratch.Write("bin/last", "old");
    const auto archive = [](const std::string& content, bool stored) {
        return BuildZip({{.name = "first", .content = "1"},
                         {.name = "last", .content = content, .stored = stored}});
    };
    // It declares 999 bytes, which the damage changes by one.
    const std::string deflated = archive(std::string(999, 'x'), false);
    for (const auto& [damaged, reason] :
         {std::pair{Patch(archive("CONTENT", true), "CONTENT", "CONTEXT"), "CRC"},
          {Patch(deflated, "\xe7\3\0\0"sv, "\xe6\3\0\0"sv), ""},
          {Patch(deflated, "\xe7\3\0\0"sv, "\xe8\3\0\0"sv), ""}}) {
        fs::remove(m_target / "first");
        EXPECT_FALSE(Run(damaged));
        EXPECT_THAT(m_messages, ContainsRegex(std::string("a.zkp: entry 'last': .*") + reason));
        EXPECT_THAT(Tree(), UnorderedElementsAre("first", "last")) << "no temporary file stays";
        EXPECT_EQ(ReadFile(m_target / "last"), "old");
    }
}

TEST_F(Unzip, SmallFileThatCannotBeWrittenFailsWithItsReasonAndLeavesTheEntriesBeforeIt) {
    std::vector<ZipBuilderEntry> entries(40);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        entries[i] = {.name = (i % 2 == 0 ? "new/" : "") + std::to_string(i), .content = "short"};
    }
    entries[5].content.resize(9999, 'x');
    const std::string archive = BuildZip(entries);
    const ChildProcess limited([&] {
        const auto limit = [](const wxZipEntry&) {
            const rlimit small{.rlim_cur = 999, .rlim_max = RLIM_INFINITY};
            return signal(SIGXFSZ, SIG_IGN) != SIG_ERR && setrlimit(RLIMIT_FSIZE, &small) == 0;
        };
        return !Run(archive, limit) &&
               m_messages.find("entry '5': cannot be written: File too large") != std::string::npos;
    });
    EXPECT_TRUE(limited.Succeeds());
    EXPECT_THAT(Tree(), UnorderedElementsAre("1", "3", "new", "new/0", "new/2", "new/4"));
}

TEST_F(Unzip, EntryWithoutPermissionsKeepsThoseOfTheFileAndNoMaskCounts) {
    fs::permissions(m_scratch.Write("bin/tool", "old"), fs::perms(0750));
    const mode_t mask = umask(0077);
    unsigned calls = 0;
    static unsigned* counter = &calls;
    m_options.progress = [] { ++*counter; };
    EXPECT_TRUE(Run(BuildZip({{.name = "tool", .content = std::string(2'000'000, 'x'), .mode = 0},
                              {.name = "a/b/new", .mode = 0}})));
    (void)umask(mask);
    EXPECT_EQ(fs::status(m_target / "tool").permissions(), fs::perms(0750));
    EXPECT_EQ(fs::status(m_target / "a/b/new").permissions(), fs::perms(0644));
    EXPECT_EQ(fs::status(m_target / "a").permissions(), fs::perms(0755));
    EXPECT_EQ(fs::status(m_target / "a/b").permissions(), fs::perms(0755));
    EXPECT_GT(calls, 16) << "from inside an entry, also of the look before";
}

TEST_F(Unzip, PackageOfMoreFoldersThanAreKeptOpenComesWhole) {
    std::vector<ZipBuilderEntry> entries(400);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const std::string number = std::to_string(i);
        entries[i] = {.name = "d" + std::to_string(i % 200) + "/" + number, .content = number};
    }
    EXPECT_TRUE(Run(BuildZip(entries)));
    EXPECT_THAT(Tree(), SizeIs(400 + 200));
    EXPECT_EQ(ReadFile(m_target / "d199/399"), "399");
}

TEST_F(Unzip, NewFoldersComeWholeAndNotOverWhatOthersHaveMadeMeanwhile) {
    const std::string archive = BuildZip({{.name = "a/b/first", .content = "1"},
                                          {.name = "c/d/", .mode = 040750},
                                          {.name = "last"}});
    const auto makes = [&](const std::string& path) {
        return [this, path](const wxZipEntry& entry) {
            if (entry.GetInternalName() == wxS("last")) {
                EXPECT_FALSE(fs::exists(m_target / "a"));
                fs::create_directories(m_target / path);
            }
            return true;
        };
    };
    EXPECT_FALSE(Run(archive, makes("a/theirs")));
    EXPECT_THAT(m_messages, HasSubstr("a.zkp: entry 'a': cannot be written: Directory not empty"));
    EXPECT_THAT(Tree(), UnorderedElementsAre("a", "a/theirs"));
    fs::remove_all(m_target / "a");
    EXPECT_TRUE(Run(archive, makes("a")));
    EXPECT_THAT(Tree(), UnorderedElementsAre("a", "a/b", "a/b/first", "c", "c/d", "last"));
    EXPECT_EQ(fs::status(m_target / "c/d").permissions(), fs::perms(0750));
}

TEST_F(Unzip, KilledRunLeavesOldFilesAndTemporaryFilesThatAreRemovedAtAnyDepth) {
    for (const char* name :
         {"bin/old", "bin/a/b/.zelka-unzip-0-2", "bin/a/.kept", "outside/.zelka-unzip-0-3"}) {
        m_scratch.Write(name, "old");
    }
    fs::create_directory_symlink("../outside", m_target / "link");
    const std::string large(0x40001, 'n');  // is not held back
    const std::string archive = BuildZip({{.name = "old", .content = large},
                                          {.name = "b/c/new", .content = large},
                                          {.name = "next"}});
    const ChildProcess killed([&] {
        return Run(archive, [](const wxZipEntry& entry) {
            return entry.GetInternalName() != wxS("next") || raise(SIGKILL) != 0;
        });
    });
    EXPECT_FALSE(killed.Succeeds());
    EXPECT_EQ(ReadFile(m_target / "old"), "old");
    EXPECT_THAT(Tree(), SizeIs(10)) << "with two temporary files and a temporary folder";
    EXPECT_FALSE(fs::exists(m_target / "b"));
    // At a depth that there are not descriptors for.
    std::string deep = "bin/deep";
    for (int i = 0; i < 100; ++i) {
        deep += "/d";
    }
    m_scratch.Write(deep + "/.zelka-unzip-0-4", "old");
    const ChildProcess cleaner([&] {
        const rlimit few{.rlim_cur = 40, .rlim_max = 40};
        return setrlimit(RLIMIT_NOFILE, &few) == 0 && RemoveTemporaryFiles(m_targetName);
    });
    EXPECT_TRUE(cleaner.Succeeds());
    EXPECT_TRUE(fs::is_empty(m_scratch.Path() / deep));
    fs::remove_all(m_target / "deep");
    EXPECT_THAT(Tree(), UnorderedElementsAre("a", "a/.kept", "a/b", "link", "old"));
    EXPECT_TRUE(fs::exists(m_scratch.Path() / "outside/.zelka-unzip-0-3"));
}

}  // namespace
}  // namespace ZelkaCore
