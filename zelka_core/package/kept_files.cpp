#include "zelka_core/package/kept_files.h"

#include <algorithm>
#include <utility>

#include "zelka_core/system/sha256.h"

namespace ZelkaCore {

namespace {

constexpr const char* kTemporaryName = ".zelka-unzip-kept";

std::string PlaceOf(const std::string& package, std::uint64_t number) {
    return std::string(kKeptFolder) + "/" + package + "/" + std::to_string(number);
}

}  // namespace

std::error_code KeptFiles::Open(const std::string& folder) {
    return m_tree.Open(folder);
}

// Folders are open only up to a number; what was changed in them has to be on the disk first.
std::error_code KeptFiles::BreatheIfFull() {
    if (!m_tree.HasManyOpen()) {
        return {};
    }
    const std::error_code error = m_tree.SyncFileSystems();
    m_tree.Forget();
    return error;
}

std::error_code KeptFiles::KeepFile(const std::string& package, KeptFile& file) {
    const std::string place = PlaceOf(package, file.number);
    if (const auto error = m_tree.ShareFile(file.path, place, kTemporaryName)) {
        return error;
    }
    const std::error_code error = ChecksumAt(place, file.sha256);
    return error == std::errc::too_many_symbolic_link_levels ? std::error_code() : error;
}

std::error_code KeptFiles::Keep(const std::string& package, const std::vector<std::string>& paths,
                                const std::map<std::string, OwnedFile>& owned,
                                std::vector<KeptFile>& kept, std::string& path) {
    Drop(package);
    std::vector<KeptFile> found;
    for (const std::string& candidate : paths) {
        path = candidate;
        FolderTree::Kind kind{};
        std::string place;
        if (const auto error = BreatheIfFull()) {
            return error;
        }
        const std::error_code error = m_tree.Look(candidate, kind, place);
        if (error == std::errc::not_a_directory || (!error && kind != FolderTree::Kind::kFile)) {
            continue;
        }
        if (error) {
            return error;
        }
        KeptFile file;
        file.path = candidate;
        file.number = found.size();
        if (const auto fault = KeepFile(package, file)) {
            return fault;
        }
        if (const auto known = owned.find(candidate); known != owned.end()) {
            file.record = known->second;
        }
        found.push_back(std::move(file));
    }
    if (const auto error = found.empty() ? std::error_code() : m_tree.SyncFileSystems()) {
        return error;
    }
    kept = std::move(found);
    return {};
}

std::error_code KeptFiles::ChecksumAt(const std::string& path, std::string& checksum) {
    ScopedFd file;
    const std::error_code error = m_tree.OpenFile(path, file);
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) {
        checksum.clear();
        return {};
    }
    return error ? error : Sha256OfFile(file, checksum);
}

// Whether what lies at the path now is what the package has put there, or has been put back before.
bool KeptFiles::MayGo(const std::string& path, const std::map<std::string, std::string>& written,
                      const std::string& keptSum, std::string& why) {
    const auto known = written.find(path);
    if (known != written.end() && known->second.empty()) {
        return true;
    }
    std::string now;
    if (const auto error = ChecksumAt(path, now)) {
        why = error.message();
        return false;
    }
    const bool isOurs =
        now.empty() || now == keptSum || (known != written.end() && now == known->second);
    if (!isOurs) {
        why = "was changed since by somebody else";
    }
    return isOurs;
}

std::error_code KeptFiles::PutBackFile(const std::string& package, const KeptFile& file) {
    const std::string place = PlaceOf(package, file.number);
    std::string now;
    if (const auto error = file.sha256.empty() ? std::error_code() : ChecksumAt(place, now)) {
        return error;
    }
    if (now != file.sha256) {
        return std::make_error_code(std::errc::io_error);
    }
    return m_tree.ShareFile(place, file.path, kTemporaryName);
}

std::error_code KeptFiles::PutBack(const std::string& package, const std::vector<KeptFile>& kept,
                                   const std::map<std::string, std::string>& written,
                                   std::vector<std::string>& left) {
    std::map<std::string, const KeptFile*> places;
    for (const auto& [path, sum] : written) {
        places.emplace(path, nullptr);
    }
    for (const KeptFile& file : kept) {
        places[file.path] = &file;
    }
    for (const auto& [path, file] : places) {
        if (const auto error = BreatheIfFull()) {
            return error;
        }
        std::string why;
        if (!MayGo(path, written, file == nullptr ? "" : file->sha256, why)) {
            left.emplace_back(path).append(": ").append(why);
            continue;
        }
        const auto error = file == nullptr ? m_tree.DeleteFile(path) : PutBackFile(package, *file);
        if (error && error != std::errc::is_a_directory) {
            left.push_back(path + ": " + error.message());
        }
    }
    return m_tree.SyncFileSystems();
}

std::error_code KeptFiles::Delete(const std::vector<std::string>& paths,
                                  std::vector<std::string>& left) {
    for (const std::string& path : paths) {
        if (const auto error = BreatheIfFull()) {
            return error;
        }
        const auto error = m_tree.DeleteFile(path);
        if (error && error != std::errc::is_a_directory) {
            left.push_back(path + ": " + error.message());
        }
    }
    return m_tree.SyncFileSystems();
}

void KeptFiles::Drop(const std::string& package) {
    (void)m_tree.DeleteFolder(std::string(kKeptFolder) + "/" + package);
    (void)m_tree.DeleteFolder(kKeptFolder);  // stays while there are others in it
}

std::error_code KeptFiles::Rename(const std::string& path, const std::string& to) {
    const std::error_code error = m_tree.ShareFile(path, to, kTemporaryName);
    if (error == std::errc::no_such_file_or_directory) {
        return {};
    }
    return error ? error : m_tree.DeleteFile(path);
}

}  // namespace ZelkaCore
