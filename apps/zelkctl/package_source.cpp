#include "apps/zelkctl/package_source.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <utility>

#include "apps/zelkctl/reply.h"
#include "apps/zelkctl/zelkctl.h"
#include "platform/file.h"
#include "platform/move_file.h"
#include "zelka_core/archive/package_check.h"
#include "zelka_core/package/package_archive.h"
#include "zelka_core/package/package_settlement.h"

namespace fs = std::filesystem;

using ZelkaCore::kManifestName;

namespace {

constexpr unsigned kFile = 0100644;
constexpr unsigned kProgram = 0100755;
constexpr unsigned kFolder = 0040755;

// What the agent keeps beside its program.
constexpr std::array kAgentsOwn{ZelkaCore::kPackagesLock, ZelkaCore::kKeptFolder,
                                kPendingDeletesName};

// "line 3: why" of a file as "FILE:3: why".
std::string FaultIn(const std::string& file, std::string_view fault) {
    constexpr std::string_view kLine = "line ";
    if (fault.starts_with(kLine)) {
        fault.remove_prefix(kLine.size());
        return file + ":" + std::string(fault);
    }
    return file + ": " + std::string(fault);
}

void Check(const std::string& path, const std::error_code& error) {
    if (error) {
        throw CommandError(Shown(path) + ": " + error.message());
    }
}

}  // namespace

PackageSource::PackageSource(std::string folder) : m_folder(std::move(folder)) {
    ReadManifest();
    ReadEntries();
    Judge();
}

void PackageSource::ReadManifest() {
    const std::string path = (fs::path(m_folder) / kManifestName).string();
    ScopedFd file;
    std::string text;
    Check(path, OpenRegularFile(path, file));
    Check(path, ReadAtMost(file, ZelkaCore::kLargestManifest + 1, text));
    if (text.size() > ZelkaCore::kLargestManifest) {
        throw CommandError(Shown(path) + ": is larger than 64 KiB");
    }
    std::string fault;
    if (!ZelkaCore::ParseManifest(text, m_manifest, fault)) {
        throw CommandError(FaultIn(Shown(path), fault));
    }
}

void PackageSource::ReadEntries() {
    std::error_code error;
    fs::recursive_directory_iterator place(m_folder, error);
    for (const fs::recursive_directory_iterator end; !error && place != end;
         place.increment(error)) {
        const fs::path& path = place->path();
        const fs::file_status status = place->symlink_status(error);
        Check(path.string(), error);
        Entry entry;
        entry.name = path.lexically_relative(m_folder).generic_string();
        if (status.type() == fs::file_type::regular) {
            const bool runs = (status.permissions() & fs::perms::owner_exec) != fs::perms::none;
            entry.path = path.string();
            entry.mode = runs ? kProgram : kFile;
            entry.size = place->file_size(error);
        } else if (status.type() != fs::file_type::directory) {
            throw CommandError(Shown(path.string()) + (fs::is_symlink(status)
                                                           ? ": is a symbolic link"
                                                           : ": is a device, a pipe or a socket"));
        } else if (fs::is_empty(path, error)) {
            entry.name += '/';
            entry.mode = kFolder;
        } else {
            continue;  // its files make it
        }
        Check(path.string(), error);
        m_entries.push_back(std::move(entry));
    }
    Check(m_folder, error);
    std::sort(m_entries.begin(), m_entries.end(),
              [](const Entry& a, const Entry& b) { return a.name < b.name; });
}

// As the agent judges the archive.
void PackageSource::Judge() const {
    std::vector<ZelkaCore::ZipEntry> entries;
    entries.reserve(m_entries.size());
    for (const Entry& entry : m_entries) {
        ZelkaCore::ZipEntry& judged = entries.emplace_back();
        judged.name = entry.name;
        judged.size = judged.packed = entry.size;
        judged.attributes = entry.mode << 16U;
        const std::string top = entry.name.substr(0, entry.name.find('/'));
        if (std::find(kAgentsOwn.begin(), kAgentsOwn.end(), top) != kAgentsOwn.end()) {
            throw CommandError(Shown(m_folder) + ": " +
                               ZelkaCore::EntryFault(judged, "is the agent's own"));
        }
    }
    std::vector<std::string> paths;
    std::string fault;
    if (!ZelkaCore::CheckPackage(entries, paths, fault)) {
        throw CommandError(Shown(m_folder) + ": " + fault);
    }
}

std::size_t PackageSource::FileCount() const {
    return static_cast<std::size_t>(std::count_if(
        m_entries.begin(), m_entries.end(),
        [](const Entry& entry) { return !entry.path.empty() && entry.name != kManifestName; }));
}

bool PackageSource::Holds(const std::string& file) const {
    std::error_code ignored;
    const fs::path folder = fs::weakly_canonical(fs::absolute(m_folder), ignored);
    const fs::path place =
        fs::weakly_canonical(fs::absolute(file).parent_path(), ignored).lexically_relative(folder);
    return !place.empty() && *place.begin() != "..";
}

void PackageSource::AddTo(ArchiveWriter& archive, std::time_t modified) const {
    for (const Entry& entry : m_entries) {
        archive.AddMarked(entry.name, entry.path, {entry.mode, modified});
    }
}
