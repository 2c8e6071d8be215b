#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "zelka_core/store/agent_database.h"

namespace ZelkaCore {

// A package with a manifest that is installed.
struct InstalledPackage {
    std::string name;
    std::string version;
    std::string requirements;    // as RequirementsText has them
    std::string archive;         // name of the file that it came in
    std::string signer;          // empty: nobody has asked
    std::int64_t installed = 0;  // milliseconds since 1970
};

struct OwnedFile {
    std::string path;    // below the program's folder, without links
    std::string sha256;  // 64 lower-case digits
    unsigned mode = 0;   // permission bits
};

// A file as it was before a package took its place.
struct KeptFile {
    std::string path;
    std::uint64_t number = 0;  // the name of what is kept of it
    std::string sha256;        // of its content; empty for a link
    // What the package's record of it says, if it owned the file.
    std::optional<OwnedFile> record;
};

// The version before the one that is on trial.
struct PackageTrial {
    InstalledPackage older;
    int failures = 0;         // starts in a row that have ended badly
    std::string start;        // the last one that counted
    bool needsStart = false;  // the program has to be started anew before it can pass
};

// All packages in an agent database that somebody has open, sorted by name, and the owner of each
// file that has one. Throw SQLite::Exception.
std::vector<InstalledPackage> PackagesIn(SQLite::Database& database);
std::map<std::string, std::string> OwnersIn(SQLite::Database& database);

// What the database knows of packages with manifests: which there are, whose file is whose, what is
// on trial, and what was begun and not finished. Threads, durability and errors are those of
// AgentDatabase: each operation is one transaction, and false means that nothing has changed and
// that the log says why. Without a database there is nothing.
class PackageRecords {
  public:
    // `database` outlives the object.
    explicit PackageRecords(AgentDatabase& database) : m_database(database) {}

    // All packages, sorted by name. Replaces `packages`.
    bool List(std::vector<InstalledPackage>& packages);
    // The files of a package, sorted by path. Replaces `files`.
    bool Files(const std::string& package, std::vector<OwnedFile>& files);
    // The owner of each file that has one. Replaces `owners`.
    bool Owners(std::map<std::string, std::string>& owners);

    // A change of a package, which has neither an unfinished one nor a trial, is unfinished from
    // here on: what it is about to write, and what is kept.
    bool Begin(const std::string& package, const std::string& archive,
               const std::vector<std::string>& paths, const std::vector<KeptFile>& kept);
    // The change is done: the package is what `package` says, and owns these files. With `trial`
    // the version before it stays on record; otherwise nobody will put back what is kept.
    bool Finish(const InstalledPackage& package, const std::vector<OwnedFile>& files,
                const std::optional<PackageTrial>& trial);
    // The change was taken back: what the records said before it holds.
    bool Abandon(const std::string& package);

    // The packages with unfinished changes, and the archives they came in. Replaces `changes`.
    bool Unfinished(std::map<std::string, std::string>& changes);
    // What an unfinished change was about to write. Replaces `paths`.
    bool ChangedPaths(const std::string& package, std::vector<std::string>& paths);
    // What is kept for a package, sorted by path. Replaces `kept`.
    bool Kept(const std::string& package, std::vector<KeptFile>& kept);

    // The packages for which files are on record as kept that nobody will put back. Replaces
    // `packages`. Forgotten when they are gone.
    bool Leftovers(std::vector<std::string>& packages);
    bool ForgetKept(const std::string& package);

    // The trials that are under way, by package. Replaces `trials`.
    bool Trials(std::map<std::string, PackageTrial>& trials);
    // One more start of a package on trial; nothing if that start counted already.
    bool CountStart(const std::string& package, const std::string& start);
    // The start has ended well, before the trial was over: failures before it do not count.
    bool ForgiveFailures();
    // The version on trial has passed.
    bool Pass(const std::string& package);
    // The version before is what there is again.
    bool TakeBack(const std::string& package);

    // Files are gone that may have had owners; a package without files is gone, too.
    bool Forget(const std::vector<std::string>& paths);
    // A package was removed, with all that is known of it.
    bool Remove(const std::string& package);

  private:
    AgentDatabase& m_database;
};

}  // namespace ZelkaCore
