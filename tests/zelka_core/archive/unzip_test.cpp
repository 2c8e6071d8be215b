#include "zelka_core/archive/unzip.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wx/filename.h>
#include <wx/zipstrm.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <utility>
#include <vector>

#include "tests/support/captured_log.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/zip_builder.h"
#include "zelka_core/text.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace ZelkaCore {
namespace {

std::string NumberBytes(std::uint32_t value) {
    std::string bytes;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(value >> shift);
    }
    return bytes;
}

// An archive and its target folder, side by side in a folder that an escaping entry would be seen
// in.
class Unzip : public testing::Test {
  protected:
    Unzip() { fs::create_directory(m_target); }

    using Answer = std::function<bool(const wxZipEntry&, const wxString&)>;

    bool Run(const std::string& archive, Answer answer = nullptr) {
        const CapturedLog log;
        m_asked.clear();
        m_answer = std::move(answer);
        const fs::path file = m_scratch.Write("a.zkp", archive);
        const bool succeeded =
            ZelkaCore::Unzip(wxFileName(FromUtf8(file.string())),
                             wxFileName(FromUtf8(m_target.string()), wxString()), &Ask, this);
        m_messages = log.Text();
        return succeeded;
    }

    // What lies below the target folder: paths, sorted.
    [[nodiscard]] std::vector<std::string> Tree() const {
        std::vector<std::string> paths;
        for (const auto& entry : fs::recursive_directory_iterator(m_target)) {
            paths.push_back(entry.path().lexically_relative(m_target).string());
        }
        std::sort(paths.begin(), paths.end());
        return paths;
    }

    [[nodiscard]] std::string Content(const std::string& path) const {
        return ReadFile(m_target / path);
    }

    // That the package is refused before anything happened, in the target folder or beside it.
    void ExpectRefused(const std::string& archive, const std::string& reason) {
        EXPECT_FALSE(Run(archive)) << reason;
        EXPECT_THAT(m_messages, HasSubstr("a.zkp: "));
        EXPECT_THAT(m_messages, HasSubstr(reason));
        EXPECT_THAT(m_asked, IsEmpty()) << reason;
        EXPECT_THAT(Tree(), IsEmpty()) << reason;
        EXPECT_EQ(std::distance(fs::directory_iterator(m_scratch.Path()), {}), 2) << reason;
    }

    const ScratchFolder m_scratch;
    const fs::path m_target = m_scratch.Path() / "bin";
    std::vector<std::string> m_asked;
    std::string m_messages;

  private:
    static bool Ask(void* userData, const wxZipEntry* entry, const wxString* target) {
        auto& self = *static_cast<Unzip*>(userData);
        self.m_asked.push_back(ToUtf8(entry->GetInternalName()));
        EXPECT_EQ(ToUtf8(*target),
                  (self.m_target / self.m_asked.back()).lexically_normal().string());
        return !self.m_answer || self.m_answer(*entry, *target);
    }

    Answer m_answer;
};

TEST_F(Unzip, WritesTheAcceptedEntriesInTheOrderOfTheArchiveAndKeepsPermissions) {
    m_scratch.Write("bin/lib/old", "old");
    const std::string archive = BuildZip({{.name = "z.txt", .content = "1", .mode = 0100640},
                                          {.name = "lib/", .content = "", .mode = 0040700},
                                          {.name = "lib/old", .content = "new", .mode = 0106755},
                                          {.name = "new/ä/b", .content = "", .stored = true},
                                          {.name = "own/", .content = "", .mode = 0040550},
                                          {.name = "no", .content = "no"}});
    EXPECT_TRUE(Run(archive, [](const wxZipEntry& entry, const wxString&) {
        return entry.GetInternalName() != wxS("no");
    }));
    EXPECT_THAT(m_asked, ElementsAre("z.txt", "lib/old", "new/ä/b", "no"));
    EXPECT_THAT(Tree(), ElementsAre("lib", "lib/old", "new", "new/ä", "new/ä/b", "own", "z.txt"));
    EXPECT_EQ(Content("lib/old"), "new");
    struct stat status {};
    ASSERT_EQ(stat((m_target / "lib/old").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, 0100755U) << "no setuid, no setgid";
    EXPECT_EQ(fs::status(m_target / "z.txt").permissions(), fs::perms(0640));
    EXPECT_EQ(fs::status(m_target / "own").permissions(), fs::perms(0750));
    EXPECT_EQ(m_messages, "");
}

TEST_F(Unzip, ShowsTheCallbackWhatTheDirectorySays) {
    const std::string content(300'000, 'x');
    EXPECT_TRUE(Run(BuildZip({{.name = "a/big", .content = content, .mode = 0100751}}),
                    [&](const wxZipEntry& entry, const wxString&) {
                        EXPECT_EQ(entry.GetSize(), 300'000);
                        EXPECT_EQ(entry.GetMode(), 0751);
                        EXPECT_EQ(entry.GetMethod(), wxZIP_METHOD_DEFLATE);
                        EXPECT_TRUE(entry.GetDateTime().IsValid());
                        EXPECT_FALSE(entry.IsDir());
                        return true;
                    }));
    EXPECT_EQ(Content("a/big"), content);
}

TEST_F(Unzip, WritesNothingWhenEveryEntryIsRefusedOrThereIsNone) {
    const auto refuse = [](const wxZipEntry&, const wxString&) { return false; };
    EXPECT_TRUE(Run(BuildZip({{.name = "folder/", .content = "", .mode = 0040755},
                              {.name = "folder/a", .content = "1"},
                              {.name = "b", .content = "2"}}),
                    refuse));
    EXPECT_THAT(m_asked, ElementsAre("folder/a", "b"));
    EXPECT_TRUE(Run(BuildZip({})));
    EXPECT_THAT(m_asked, IsEmpty());
    EXPECT_THAT(Tree(), IsEmpty());
}

TEST_F(Unzip, EntryThatEscapesTheFolderFailsThePackageAndWritesNothing) {
    for (const auto& [name, reason] :
         std::vector<std::pair<std::string, std::string>>{{"../x", "'..'"},
                                                          {"a/../../x", "'..'"},
                                                          {"a/..", "'..'"},
                                                          {"/x", "absolute"},
                                                          {"..\\x", "backslash"},
                                                          {"C:x", "drive letter"},
                                                          {"a\nb", "control character"},
                                                          {"a/./", "folder by half"},
                                                          {std::string(256, 'n'), "too long"},
                                                          {".zelka-unzip-1", "temporary"}}) {
        ExpectRefused(BuildZip({{.name = "good", .content = "1"}, {.name = name, .content = "2"}}),
                      reason);
    }
    const std::string archive = BuildZip({{.name = "good", .content = "1"}, {.name = "aNb"}});
    ExpectRefused(Patch(archive, "aNb", std::string_view("a\0b", 3)), "NUL");
    ExpectRefused(Patch(archive, "aNb", "a\xe4\x62"), "not UTF-8");
}

TEST_F(Unzip, EntryThatIsNoPlainFileOrIsEncryptedFailsThePackageAndWritesNothing) {
    ZipBuilderEntry bad{.name = "bad", .content = "/etc/passwd"};
    const auto expectRefused = [&](const std::string& reason) {
        ExpectRefused(BuildZip({{.name = "good", .content = "1"}, bad}), reason);
    };
    bad.mode = 0120777;
    expectRefused("symbolic link");
    bad.mode = 0060600;
    expectRefused("device");
    bad.mode = 0040755;
    expectRefused("folder by half");
    bad.mode = 0100644;
    bad.encrypted = true;
    expectRefused("encrypted");
}

TEST_F(Unzip, EntriesInEachOthersWayFailThePackageAndWriteNothing) {
    const std::string archive = BuildZip({{.name = "aa", .content = "1"},
                                          {.name = "a-", .content = "2"},
                                          {.name = "bb/c", .content = "3"},
                                          {.name = "d//e", .content = "4"},
                                          {.name = "d/./f", .content = "5"}});
    ExpectRefused(Patch(archive, "a-", "aa"), "twice");
    ExpectRefused(Patch(archive, "aa", "bb"), "below an entry that is a file");
    ExpectRefused(Patch(archive, "d/./f", "d/./e"), "twice");
    EXPECT_TRUE(Run(archive, [](const wxZipEntry& entry, const wxString&) {
        return !entry.GetInternalName().StartsWith(wxS("d"));
    }));
}

TEST_F(Unzip, LinkInTheTargetFolderIsNeverFollowed) {
    fs::create_directory(m_scratch.Path() / "outside");
    fs::create_directory_symlink("../outside", m_target / "link");
    m_scratch.Write("outside/kept", "kept");
    for (const char* name : {"link/kept", "link/new/x", "link/"}) {
        EXPECT_FALSE(Run(BuildZip(
            {{.name = "good", .content = "1"}, {.name = name, .content = "", .mode = 0}})));
        EXPECT_THAT(m_messages, HasSubstr("symbolic link 'link'"));
        EXPECT_THAT(m_asked, IsEmpty());
    }
    // One that is put there when the check has passed stops the walk; the entries before it stay.
    EXPECT_FALSE(
        Run(BuildZip({{.name = "good", .content = "1"}, {.name = "late/x", .content = "2"}}),
            [this](const wxZipEntry& entry, const wxString&) {
                if (entry.GetInternalName() == wxS("late/x")) {
                    fs::create_directory_symlink("../outside", m_target / "late");
                }
                return true;
            }));
    EXPECT_EQ(Content("good"), "1");
    EXPECT_EQ(std::distance(fs::directory_iterator(m_scratch.Path() / "outside"), {}), 1);
    // A link at the very place of an entry is a file to replace.
    fs::create_symlink("../outside/kept", m_target / "kept");
    EXPECT_TRUE(Run(BuildZip({{.name = "kept", .content = "new"}})));
    EXPECT_FALSE(fs::is_symlink(m_target / "kept"));
    EXPECT_EQ(ReadFile(m_scratch.Path() / "outside/kept"), "kept");
}

TEST_F(Unzip, DamagedEntryFailsAndLeavesTheOldFileAndTheEntriesBeforeIt) {
    m_scratch.Write("bin/last", "old");
    const std::string archive = BuildZip({{.name = "first", .content = "1"},
                                          {.name = "last", .content = "CONTENT", .stored = true}});
    const auto expectDamaged = [&](const std::string& damaged, const std::string& reason) {
        fs::remove(m_target / "first");
        EXPECT_FALSE(Run(damaged));
        EXPECT_THAT(m_messages, HasSubstr("a.zkp: entry 'last': "));
        EXPECT_THAT(m_messages, HasSubstr(reason));
        EXPECT_THAT(Tree(), ElementsAre("first", "last")) << "no temporary file stays";
        EXPECT_EQ(Content("last"), "old");
    };
    expectDamaged(Patch(archive, "CONTENT", "CONTEXT"), "CRC");
    const std::string deflated = BuildZip(
        {{.name = "first", .content = "1"}, {.name = "last", .content = std::string(999, 'x')}});
    expectDamaged(Patch(deflated, NumberBytes(999), NumberBytes(998)), "");
    expectDamaged(Patch(deflated, NumberBytes(999), NumberBytes(1000)), "");
}

TEST_F(Unzip, ArchiveCutAnywhereIsRefused) {
    const std::string archive =
        BuildZip({{.name = "a", .content = "1"}, {.name = "b/c", .content = "22"}});
    for (std::size_t size = 0; size < archive.size(); ++size) {
        ExpectRefused(archive.substr(0, size), "");
    }
    ExpectRefused(archive + "x", "its end is missing");
}

TEST_F(Unzip, DirectoryThatLiesAboutItselfIsRefused) {
    const std::string archive =
        BuildZip({{.name = "a", .content = "1"}, {.name = "b", .content = "2"}});
    const std::size_t end = archive.size() - 22;
    for (const char count : {'\0', '\1', '\3'}) {
        std::string lying = archive;
        lying[end + 8] = lying[end + 10] = count;
        ExpectRefused(lying, "entries and holds 2");
    }
    std::string lying = archive;
    ++lying[end + 12];
    ExpectRefused(lying, "not where its end says");
}

TEST_F(Unzip, PackageThatDeclaresMoreThanTheDiskHasFailsBeforeTheFirstWrite) {
    const std::uint32_t declared = 0xfffffff0U;
    const std::uintmax_t count = fs::space(m_target).available / declared + 2;
    std::vector<ZipBuilderEntry> entries;
    while (entries.size() < count) {
        entries.push_back(
            {.name = std::to_string(entries.size()), .content = std::string(999, 'x')});
    }
    EXPECT_FALSE(Run(Patch(BuildZip(entries), NumberBytes(999), NumberBytes(declared))));
    EXPECT_THAT(m_messages, HasSubstr("a.zkp: needs "));
    EXPECT_THAT(Tree(), IsEmpty());
}

TEST_F(Unzip, FolderInThePlaceOfAFileFailsAndLosesNothing) {
    m_scratch.Write("bin/a/kept", "kept");
    EXPECT_FALSE(Run(BuildZip({{.name = "0", .content = "0"}, {.name = "a", .content = "1"}})));
    EXPECT_THAT(Tree(), ElementsAre("0", "a", "a/kept"));
    EXPECT_THAT(m_messages, HasSubstr("bin/a' cannot be written"));
}

TEST_F(Unzip, PackageOfMoreFoldersThanAreKeptOpenComesWhole) {
    std::vector<ZipBuilderEntry> entries;
    for (int i = 0; i < 400; ++i) {
        const std::string number = std::to_string(i);
        entries.push_back(
            {.name = "d" + std::to_string(i % 200) + "/" + number, .content = number});
    }
    EXPECT_TRUE(Run(BuildZip(entries)));
    EXPECT_EQ(Tree().size(), 400U + 200U);
    EXPECT_EQ(Content("d199/399"), "399");
}

TEST_F(Unzip, KilledRunLeavesOldFilesAndWhatTheNextStartRemoves) {
    m_scratch.Write("bin/a", "old");
    const pid_t child = fork();
    if (child == 0) {
        (void)Run(BuildZip({{.name = "a", .content = "new"}, {.name = "b", .content = "new"}}),
                  [](const wxZipEntry& entry, const wxString&) {
                      return entry.GetInternalName() == wxS("a") || (_exit(0), true);
                  });
    }
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(Content("a"), "old");
    EXPECT_EQ(Tree().size(), 2U);
    EXPECT_TRUE(RemoveTemporaryFiles(wxFileName(FromUtf8(m_target.string()), wxString())));
    EXPECT_THAT(Tree(), ElementsAre("a"));
}

TEST_F(Unzip, OnlyTemporaryFilesThatNobodyWritesAreRemoved) {
    const wxFileName target(FromUtf8(m_target.string()), wxString());
    fs::create_directory(m_scratch.Path() / "outside");
    fs::create_directory_symlink("../outside", m_target / "link");
    for (const char* name : {"bin/.zelka-unzip-0-1", "bin/a/b/.zelka-unzip-0-2", "bin/a/.kept",
                             "outside/.zelka-unzip-0-3"}) {
        m_scratch.Write(name, "part");
    }
    EXPECT_TRUE(
        Run(BuildZip({{.name = "new", .content = "1"}}), [&](const wxZipEntry&, const wxString&) {
            EXPECT_TRUE(RemoveTemporaryFiles(target)) << "waits for nobody";
            EXPECT_TRUE(fs::exists(m_target / ".zelka-unzip-0-1"));
            return true;
        }));
    EXPECT_TRUE(RemoveTemporaryFiles(target));
    EXPECT_THAT(Tree(), ElementsAre("a", "a/.kept", "a/b", "link", "new"));
    EXPECT_TRUE(fs::exists(m_scratch.Path() / "outside/.zelka-unzip-0-3"));
    const CapturedLog warnings;
    EXPECT_FALSE(RemoveTemporaryFiles(wxFileName(target.GetPath() + wxS("/no"), wxString())));
}

}  // namespace
}  // namespace ZelkaCore
