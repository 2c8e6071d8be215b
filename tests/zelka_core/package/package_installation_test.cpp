#include "zelka_core/package/package_installation.h"

#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <wx/filename.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <map>

#include "tests/support/captured_log.h"
#include "tests/support/child_process.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/zip_builder.h"
#include "zelka_core/system/sha256.h"
#include "zelka_core/text.h"

using testing::AnyOf;
using testing::HasSubstr;

namespace {

// The process is killed instead of the step at which this reaches 0.
std::atomic<int> g_stepsLeft = -1;

void Step() {
    if (g_stepsLeft >= 0 && g_stepsLeft-- == 0) {
        (void)raise(SIGKILL);
    }
}

}  // namespace

// In place of the C library's: what changes names in a folder, and what waits for the disk.
extern "C" int SteppingRename(int from, const char* name, int to,
                              const char* target) asm("renameat");
extern "C" int SteppingRename(int from, const char* name, int to, const char* target) {
    Step();
    return static_cast<int>(syscall(SYS_renameat2, from, name, to, target, 0));
}
extern "C" int SteppingLink(int from, const char* name, int to, const char* target,
                            int flags) asm("linkat");
extern "C" int SteppingLink(int from, const char* name, int to, const char* target, int flags) {
    Step();
    return static_cast<int>(syscall(SYS_linkat, from, name, to, target, flags));
}
extern "C" int SteppingUnlink(int folder, const char* name, int flags) asm("unlinkat");
extern "C" int SteppingUnlink(int folder, const char* name, int flags) {
    Step();
    return static_cast<int>(syscall(SYS_unlinkat, folder, name, flags));
}
extern "C" int SteppingSync(int fd) asm("syncfs");
extern "C" int SteppingSync(int fd) {
    Step();
    return static_cast<int>(syscall(SYS_syncfs, fd));
}

namespace ZelkaCore {
namespace {

using Files = std::map<std::string, std::string>;  // contents by path

std::string Manifest(const std::string& name, const std::string& version,
                     const std::string& more = "") {
    return "[package]\nname=" + name + "\nversion=" + version + "\n" + more;
}

// The files of two versions: one that stays the same, one that changes, one that goes, one that
// comes.
Files Old() {
    return {{"a/same", "same"}, {"a/changes", "old"}, {"gone", "old"}};
}
Files New() {
    return {{"a/same", "same"}, {"a/changes", "new"}, {"b/comes", "new"}};
}

// What was there before, and belongs to nobody.
Files Nobodys() {
    return {{"a/changes", "nobody's"}, {"nobodys", "nobody's"}};
}

// Both; the first where both have a path.
Files Sum(Files a, const Files& b) {
    a.insert(b.begin(), b.end());
    return a;
}

std::string Package(const std::string& manifest, const Files& files) {
    std::vector<ZipBuilderEntry> entries{{.name = kManifestName, .content = manifest}};
    for (const auto& [path, content] : files) {
        entries.push_back({.name = path, .content = content, .stored = true});
    }
    return BuildZip(entries);
}

class PackageInstallationTest : public testing::Test {
  protected:
    PackageInstallationTest() { fs::create_directories(m_bin); }

    bool Install(const std::string& package) {
        const fs::path archive = m_scratch.Write("p.zkp", package);
        AgentDatabase database(m_file, {});
        PackageSettlement settlement(database);
        m_notes.clear();
        EXPECT_TRUE(settlement.Open(m_bin.string(), m_notes));
        PackageInstallation installation(settlement, m_host, "p.zkp", "");
        const CapturedLog log;
        const auto accept = [](void*, const wxZipEntry*, const wxString*) { return true; };
        const bool isUnpacked =
            Unzip(wxFileName(FromUtf8(archive.string())),
                  wxFileName(FromUtf8(m_bin.string()), wxString()), accept, nullptr,
                  {.passedOver = kManifestName, .observer = &installation});
        const bool isInstalled = installation.Finish(isUnpacked, m_notes);
        m_messages = log.Text();
        return isInstalled;
    }

    // What a start does before it looks at packages.
    void Settle(const std::string& start) {
        AgentDatabase database(m_file, {});
        PackageSettlement settlement(database);
        (void)RemoveTemporaryFiles(wxFileName(FromUtf8(m_bin.string()), wxString()));
        EXPECT_TRUE(settlement.Open(m_bin.string(), m_notes));
        EXPECT_TRUE(settlement.SettleChanges(m_notes));
        EXPECT_TRUE(settlement.SettleTrials(start, m_notes));
    }

    [[nodiscard]] Files Tree() const {
        Files files;
        for (const auto& entry : fs::recursive_directory_iterator(m_bin)) {
            const std::string path = entry.path().lexically_relative(m_bin).string();
            if (!entry.is_directory() && !path.starts_with(kKeptFolder)) {
                files.emplace(path, ReadFile(entry.path()));
            }
        }
        return files;
    }

    // The version on record, if the records say of each file what is there.
    [[nodiscard]] std::string VersionOf(const std::string& package) const {
        AgentDatabase database(m_file, {});
        PackageRecords records(database);
        std::vector<InstalledPackage> packages;
        std::vector<OwnedFile> files;
        EXPECT_TRUE(records.List(packages) && records.Files(package, files));
        for (const OwnedFile& file : files) {
            const std::string now = ReadFile(m_bin / file.path);
            EXPECT_EQ(Sha256Of(now), file.sha256) << file.path << " holds " << now;
        }
        for (const InstalledPackage& installed : packages) {
            if (installed.name == package) {
                return installed.version;
            }
        }
        return "none";
    }

    void PutNobodys() const {
        for (const auto& [path, content] : Nobodys()) {
            (void)m_scratch.Write("agent/bin/" + path, content);
        }
    }

    void GoBackTo(const fs::path& copy) const {
        fs::remove_all(m_folder);
        fs::copy(copy, m_folder, fs::copy_options::recursive);
    }

    const ScratchFolder m_scratch;
    const fs::path m_folder = m_scratch.Path() / "agent";
    const fs::path m_bin = m_folder / "bin";
    const fs::path m_file = m_folder / "work/zelk_agent.db";
    const PackageHost m_host{
        .name = "zelk_agent", .version = "1.5", .program = {"zelk_agent"}, .start = "start"};
    std::vector<std::string> m_notes;
    std::string m_messages;
};

TEST_F(PackageInstallationTest, WhatIsRefusedWritesNothingAndSaysWhy) {
    ASSERT_TRUE(Install(Package(Manifest("a", "2.0"), Old())));
    const Files before = Tree();
    const std::vector<std::pair<std::string, std::string>> refused{
        {Manifest("b", "1.0"), "holds 'a/changes', which belongs to the package a"},
        {Manifest("a", "1.9"), "is a 1.9, older than 2.0, which is installed"},
        {Manifest("a", "2.1", "requires=c\n"), "requires c, which is not installed"},
        {Manifest("a", "2.1", "requires=zelk_agent>=2\n"),
         "requires zelk_agent>=2, and 1.5 is installed"},
        {"[package]\nname=a\n", "zelka_package.ini: the group [package] has no version"}};
    for (const auto& [manifest, reason] : refused) {
        EXPECT_FALSE(Install(Package(manifest, New())));
        EXPECT_THAT(m_messages, HasSubstr(reason));
        EXPECT_EQ(Tree(), before);
    }
    EXPECT_EQ(VersionOf("a"), "2.0");
    EXPECT_EQ(VersionOf("b"), "none");
    EXPECT_TRUE(
        Install(Package(Manifest("b", "1.0", "requires=a=2.0, zelk_agent\n"), {{"x", "x"}})));
}

TEST_F(PackageInstallationTest, OneThatFailsInTheMiddleLeavesThingsAsTheyWere) {
    PutNobodys();
    const Files files = Sum({{"z", "content"}}, New());
    const auto damaged = [&](const char* version) {
        return Patch(Package(Manifest("a", version), files), "content", "contest");
    };
    EXPECT_FALSE(Install(damaged("1")));
    EXPECT_EQ(Tree(), Nobodys());
    ASSERT_TRUE(Install(Package(Manifest("a", "1"), Old())));
    EXPECT_FALSE(Install(damaged("2")));
    EXPECT_EQ(Tree(), Sum(Old(), Nobodys()));
    EXPECT_EQ(VersionOf("a"), "1");
}

TEST_F(PackageInstallationTest, WhateverStepIsTheLastTheNextStartFindsOneVersionWhole) {
    const auto installs = [this](const char* version, const Files& files) {
        return Install(Package(Manifest("a", version), files));
    };
    const std::vector<std::function<bool()>> works{
        [&] { return installs("1", Old()); },
        [&] { return installs("2", New()); },
        [&] {
            Settle("second");
            Settle("third");
            Settle("fourth");
            return true;
        },
    };
    PutNobodys();
    const std::vector<Files> states{Nobodys(), Sum(Old(), Nobodys()), Sum(New(), Nobodys())};
    for (std::size_t work = 0; work < works.size(); ++work) {
        const fs::path before = m_scratch.Path() / ("before" + std::to_string(work));
        fs::copy(m_folder, before, fs::copy_options::recursive);
        bool isDone = false;
        for (int steps = 0; !isDone && steps < 200; ++steps) {
            SCOPED_TRACE("work " + std::to_string(work) + ", step " + std::to_string(steps));
            GoBackTo(before);
            const ChildProcess child([&] {
                g_stepsLeft = steps;
                return works[work]();
            });
            isDone = child.Succeeds();
            Settle("start");
            const std::string version = VersionOf("a");
            ASSERT_THAT(version, AnyOf("none", "1", "2"));
            Files state = states.at(version == "none" ? 0U : version == "1" ? 1U : 2U);
            if (version == "2") {
                state.erase("gone");
            }
            ASSERT_EQ(Tree(), state);
            ASSERT_TRUE(work == 2 || works[work]());
            ASSERT_FALSE(fs::exists(m_bin / kKeptFolder) && work == 0);
        }
        ASSERT_TRUE(isDone);
        GoBackTo(before);
        ASSERT_TRUE(works[work]());
    }
}

TEST_F(PackageInstallationTest, AFileThatWasChangedByHandStaysWhereTheRestIsTakenBack) {
    ASSERT_TRUE(Install(Package(Manifest("a", "1"), Old())));
    ASSERT_TRUE(Install(Package(Manifest("a", "2"), New())));
    (void)m_scratch.Write("agent/bin/a/changes", "by hand");
    for (const char* start : {"second", "third", "fourth"}) {
        m_notes.clear();
        Settle(start);
    }
    EXPECT_THAT(m_notes, testing::ElementsAre("a 2 has failed 3 times in a row: 1 is put back",
                                              "left as it is: a/changes: was changed since by "
                                              "somebody else"));
    Files expected = Old();
    expected["a/changes"] = "by hand";
    EXPECT_EQ(Tree(), expected);
}

}  // namespace
}  // namespace ZelkaCore
