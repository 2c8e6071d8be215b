#include "apps/zelkctl/packages_on_disk.h"

#include <algorithm>
#include <filesystem>

#include "apps/zelkctl/output.h"
#include "apps/zelkctl/reply.h"
#include "apps/zelkctl/zelkctl.h"
#include "platform/file.h"

namespace fs = std::filesystem;

using ZelkaCore::InstalledPackage;
using ZelkaCore::PackageRecords;

namespace {

// The database, which can be read if it is there.
std::string Readable(const std::string& workdir) {
    std::error_code missing;
    if (!fs::is_directory(workdir, missing)) {
        throw CommandError(workdir + ": this is no folder that this user may read");
    }
    std::string file = DatabaseFileOf(workdir);
    ScopedFd database;
    const std::error_code error = OpenRegularFile(file, database);
    if (error && error != std::errc::no_such_file_or_directory) {
        throw CommandError(file + ": " + error.message());
    }
    return file;
}

// What `read` fills, which has told why if it fails.
template <typename Container, typename... Arguments>
Container Read(PackageRecords& records, bool (PackageRecords::*read)(Arguments...),
               const std::string& package = {}) {
    Container found;
    bool isRead = false;
    if constexpr (sizeof...(Arguments) == 1) {
        isRead = (records.*read)(found);
    } else {
        isRead = (records.*read)(package, found);
    }
    if (!isRead) {
        throw QuietFailure();
    }
    return found;
}

}  // namespace

std::string DatabaseFileOf(const std::string& workdir) {
    return workdir + "/plugins/zelka_core/zelk_agent.db";
}

PackagesOnDisk::PackagesOnDisk(const std::string& workdir)
    : m_database(Readable(workdir), ZelkaCore::SqliteTuning()), m_records(m_database) {
}

std::vector<InstalledPackage> PackagesOnDisk::List() {
    return Read<std::vector<InstalledPackage>>(m_records, &PackageRecords::List);
}

InstalledPackage PackagesOnDisk::Find(const std::string& name) {
    const auto packages = List();
    const auto found =
        std::find_if(packages.begin(), packages.end(),
                     [&](const InstalledPackage& package) { return package.name == name; });
    if (found == packages.end()) {
        throw CommandError("no package " + Shown(name) + " is installed");
    }
    return *found;
}

std::vector<ZelkaCore::OwnedFile> PackagesOnDisk::Files(const std::string& package) {
    return Read<std::vector<ZelkaCore::OwnedFile>>(m_records, &PackageRecords::Files, package);
}

std::vector<ZelkaCore::KeptFile> PackagesOnDisk::Kept(const std::string& package) {
    return Read<std::vector<ZelkaCore::KeptFile>>(m_records, &PackageRecords::Kept, package);
}

std::map<std::string, std::string> PackagesOnDisk::Owners() {
    return Read<std::map<std::string, std::string>>(m_records, &PackageRecords::Owners);
}

std::map<std::string, ZelkaCore::PackageTrial> PackagesOnDisk::Trials() {
    return Read<std::map<std::string, ZelkaCore::PackageTrial>>(m_records, &PackageRecords::Trials);
}

void PackagesOnDisk::TellUnfinished() {
    const auto changes =
        Read<std::map<std::string, std::string>>(m_records, &PackageRecords::Unfinished);
    for (const auto& [package, archive] : changes) {
        Tell("the installation of " + Shown(archive) +
             " is under way or was interrupted; the next start puts back what it has changed");
    }
}
