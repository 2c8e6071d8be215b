#include "tests/zelka_core/archive/unzip_case.h"

#include <sys/stat.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using namespace std::string_view_literals;

namespace ZelkaCore {
namespace {

std::string NumberBytes(std::uint32_t value) {
    std::string bytes;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(value >> shift);
    }
    return bytes;
}

TEST_F(Unzip, WritesTheAcceptedEntriesInTheOrderOfTheArchiveAndKeepsPermissions) {
    m_scratch.Write("bin/lib/old", "old");
    const std::string big(300'000, 'x');
    const std::string archive = BuildZip({{.name = "z.txt", .content = big, .mode = 0100640},
                                          {.name = "lib/", .mode = 0040700},
                                          {.name = "lib/old", .content = "new", .mode = 0106755},
                                          {.name = "new/ä/b", .stored = true},
                                          {.name = "own/", .mode = 0040550},
                                          {.name = "no", .content = "no"}});
    EXPECT_TRUE(
        Run(archive, [](const wxZipEntry& entry) { return entry.GetInternalName() != wxS("no"); }));
    EXPECT_THAT(m_asked, ElementsAre("z.txt", "lib/old", "new/ä/b", "no"));
    EXPECT_THAT(Tree(),
                UnorderedElementsAre("lib", "lib/old", "new", "new/ä", "new/ä/b", "own", "z.txt"));
    EXPECT_EQ(ReadFile(m_target / "lib/old"), "new");
    EXPECT_EQ(ReadFile(m_target / "z.txt"), big);
    EXPECT_EQ(fs::status(m_target / "lib/old").permissions(), fs::perms(0755)) << "no setuid";
    EXPECT_EQ(fs::status(m_target / "z.txt").permissions(), fs::perms(0640));
    EXPECT_EQ(fs::status(m_target / "own").permissions(), fs::perms(0750));
}

TEST_F(Unzip, EntryThatEscapesTheFolderOrIsNoPlainFileFailsThePackageAndWritesNothing) {
    const std::vector<std::pair<ZipBuilderEntry, const char*>> rows{
        {{.name = "../x"}, "'..'"},
        {{.name = "a/.."}, "'..'"},
        {{.name = "/x"}, "absolute"},
        {{.name = "..\\x"}, "backslash"},
        {{.name = "C:x"}, "drive letter"},
        {{.name = "a\nb"}, "'a.u.a.b': .*control character"},
        {{.name = "a\u0085"}, "'a.u.85.': .*control character"},
        {{.name = "gpj\u202e\u202c.sh"}, "'gpj.u.202e..u.202c..sh': .*control character"},
        {{.name = std::string(256, 'n')}, "too long"},
        {{.name = ".zelka-unzip-1"}, "temporary"},
        {{.name = "folder/./"}, "folder by half"},
        {{.name = "file", .mode = 0040755}, "folder by half"},
        {{.name = "link", .content = "/etc/passwd", .mode = 0120777}, "symbolic link"},
        {{.name = "device", .mode = 0060600}, "device"},
        {{.name = "secret", .content = "1", .encrypted = true}, "encrypted"}};
    for (const auto& [bad, reason] : rows) {
        ExpectRefused(BuildZip({{.name = "good", .content = "1"}, bad}), reason);
    }
}

TEST_F(Unzip, WritesNothingWhenEveryEntryIsRefusedOrThereIsNoneOrTheDirectoryLies) {
    const std::string archive = BuildZip({{.name = "folder/", .mode = 0040755},
                                          {.name = "aa", .content = "1"},
                                          {.name = "a-", .content = "2"},
                                          {.name = "bb/c", .content = "3"},
                                          {.name = "d//e", .content = "4"},
                                          {.name = "d/./f", .content = "5"}});
    EXPECT_TRUE(Run(archive, [](const wxZipEntry&) { return false; }));
    EXPECT_THAT(m_asked, ElementsAre("aa", "a-", "bb/c", "d//e", "d/./f"));
    EXPECT_TRUE(Run(BuildZip({})));
    ExpectRefused(Patch(archive, "a-", "aa"), "twice");
    ExpectRefused(Patch(archive, "d/./f", "d/./e"), "twice");
    ExpectRefused(Patch(archive, "aa", "bb"), "below an entry that is a file");
    ExpectRefused(Patch(archive, "a-", "a\0"sv), "NUL");
    ExpectRefused(Patch(archive, "a-", "a\xe4"), "(not|invalid) UTF-8");

    const std::size_t end = archive.size() - 22;
    for (const char count : {'\0', '\5', '\7'}) {
        std::string lying = archive;
        lying[end + 8] = lying[end + 10] = count;
        ExpectRefused(lying, "entries and holds 6");
    }
    std::string lying = archive;
    ++lying[end + 12];
    ExpectRefused(lying, "not where its end says");
    EXPECT_TRUE(Run(std::string(65536, 'b') + archive + std::string(65536, 'x'),
                    [](const wxZipEntry&) { return false; }));
    ExpectRefused(std::string(65537, 'b') + archive, "not where its end says");
    ExpectRefused(archive + std::string(65537, 'x'), "its end is missing");
}

TEST_F(Unzip, AnArchiveIsBelievedInItsEndRecordsOnlyAsFarAsTheyAgreeWithIt) {
    const std::string archive = BuildZip({{.name = "a", .content = "1"}, {.name = "b"}});
    const std::size_t end = archive.size() - 22;
    // The same directory by 64-bit records, which may tell of more than there is memory for.
    const std::string none = NumberBytes(0);
    const auto end64 = [&](std::uint32_t count) {
        const std::string counted = NumberBytes(count) + none;
        return "PK\6\6" + NumberBytes(44) + none + none + none + none + counted + counted +
               archive.substr(end + 12, 4) + none + archive.substr(end + 16, 4) + none + "PK\6\7" +
               none + NumberBytes(static_cast<std::uint32_t>(end)) + none + NumberBytes(1) +
               archive.substr(end);
    };
    const std::string large = archive.substr(0, end) + end64(2);
    EXPECT_TRUE(Run(large, [](const wxZipEntry&) { return false; }));
    EXPECT_TRUE(Run("beside" + large, [](const wxZipEntry&) { return false; }));
    ExpectRefused(archive.substr(0, end) + end64(500'001), "more than 500000 entries");
    ExpectRefused(BuildZip({{.name = "x", .content = end64(0xffffffff), .stored = true}}),
                  "two ends");
    // An archive in an archive that was cut off is not taken for it.
    const std::string outer = BuildZip({{.name = "inner", .content = archive, .stored = true}});
    ExpectRefused(outer.substr(0, outer.size() - 1), "not where its end says");
    for (std::size_t size = 0; size < archive.size(); ++size) {
        ExpectRefused(archive.substr(0, size), "");
    }
}

TEST_F(Unzip, LinkIsFollowedBelowTheTargetFolderAndNeverOutOfIt) {
    m_scratch.Write("outside/kept", "kept");
    m_scratch.Write("bin/in/folder/old", "old");
    fs::create_directory_symlink("../outside", m_target / "link");
    fs::create_directory_symlink("../../outside", m_target / "in/out");
    fs::create_directory_symlink(m_target / "in", m_target / "absolute");
    fs::create_directory_symlink("./in/folder/../folder", m_target / "inside");
    for (const char* name : {"link/kept", "link/new/x", "link/", "in/out/kept", "absolute/x"}) {
        EXPECT_FALSE(Run(BuildZip({{.name = "good", .content = "1"}, {.name = name, .mode = 0}})));
        EXPECT_THAT(m_messages, HasSubstr("link leads out of the folder"));
        EXPECT_THAT(m_asked, IsEmpty());
    }
    EXPECT_TRUE(Run(BuildZip({{.name = "inside/old", .content = "new"}, {.name = "inside/a/b"}})));
    EXPECT_EQ(ReadFile(m_target / "in/folder/old"), "new");
    EXPECT_TRUE(fs::exists(m_target / "in/folder/a/b"));
    EXPECT_FALSE(Run(BuildZip({{.name = "inside/old"}, {.name = "in/folder/old"}})));
    EXPECT_THAT(m_messages, HasSubstr("twice"));
    // One that is put there when the check has passed stops the walk; the entries before it stay.
    EXPECT_FALSE(Run(BuildZip({{.name = "good", .content = "1"}, {.name = "late/x"}}),
                     [this](const wxZipEntry& entry) {
                         if (entry.GetInternalName() == wxS("late/x")) {
                             fs::create_directory_symlink("../outside", m_target / "late");
                         }
                         return true;
                     }));
    EXPECT_EQ(ReadFile(m_target / "good"), "1");
    // A link at the very place of an entry is a file to replace.
    fs::create_symlink("../outside/kept", m_target / "kept");
    EXPECT_TRUE(Run(BuildZip({{.name = "kept", .content = "new"}})));
    EXPECT_FALSE(fs::is_symlink(m_target / "kept"));
    EXPECT_EQ(ReadFile(m_scratch.Path() / "outside/kept"), "kept");
    EXPECT_EQ(std::distance(fs::directory_iterator(m_scratch.Path() / "outside"), {}), 1);
}

TEST_F(Unzip, PackageThatDeclaresMoreThanTheDiskHasFailsBeforeTheFirstWrite) {
    std::vector<ZipBuilderEntry> entries(fs::space(m_target).available / 0xfffffff0U + 2);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        entries[i] = {.name = std::to_string(i), .content = std::string(999, 'x')};
    }
    EXPECT_FALSE(Run(Patch(BuildZip(entries), "\xe7\3\0\0"sv, "\xf0\xff\xff\xff"sv)));
    EXPECT_THAT(m_messages, HasSubstr("a.zkp: needs "));
    EXPECT_THAT(Tree(), IsEmpty());
}

TEST_F(Unzip, WhatCannotComeInPlaceFailsBeforeTheFirstWrite) {
    m_scratch.Write("bin/folder/kept", "kept");
    m_scratch.Write("bin/file", "kept");
    m_scratch.Write("bin/work/log/app.log", "kept");
    fs::create_directory_symlink("missing/../work", m_target / "link");
    m_options.reserved = {m_target / "work", m_target / "lock", m_scratch.Path()};
    for (const auto& [name, reason] : {std::pair{"folder", "is a file where there is a folder"},
                                       {"file/x", "needs a folder where there is a file"},
                                       {"file/", "needs a folder where there is a file"},
                                       {"lock", "reserved"},
                                       {"work/log/app.log", "reserved"},
                                       {"work/new", "reserved"},
                                       {"link/log/app.log", "reserved"}}) {
        EXPECT_FALSE(Run(BuildZip({{.name = "0", .content = "0"}, {.name = name, .mode = 0}})));
        EXPECT_THAT(m_messages, HasSubstr(reason)) << name;
        EXPECT_THAT(m_asked, IsEmpty());
        EXPECT_FALSE(fs::exists(m_target / "0"));
    }
    std::string empty =
        BuildZip({{.name = "0", .content = "0"}, {.name = "empty", .stored = true}});
    empty[empty.rfind("PK\1\2") + 16] = 'x';
    EXPECT_FALSE(Run(empty)) << "a checksum of nothing";
    EXPECT_THAT(m_asked, IsEmpty());
    // Where files are only removed, what is in the way of one is as good as gone.
    m_options.removes = true;
    EXPECT_TRUE(Run(BuildZip({{.name = "folder"}, {.name = "file/x"}}),
                    [](const wxZipEntry&) { return false; }));
    EXPECT_FALSE(Run(BuildZip({{.name = "work/log/app.log"}})));
}

}  // namespace
}  // namespace ZelkaCore
