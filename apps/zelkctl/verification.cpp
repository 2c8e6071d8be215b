#include "apps/zelkctl/verification.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <set>

#include "apps/zelkctl/zelkctl.h"
#include "platform/error.h"
#include "zelka_core/archive/package_check.h"
#include "zelka_core/system/sha256.h"

namespace fs = std::filesystem;

using ZelkaCore::OwnedFile;

namespace {

constexpr unsigned kModeBits = 07777;

// Folders in which others than packages have files.
constexpr std::array<const char*, 3> kSharedFolders{"", "lib", "zelka_core"};

std::string ModeText(unsigned mode) {
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "%04o", mode);
    return text.data();
}

std::string FolderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

bool IsShared(const std::string& folder) {
    return std::find(kSharedFolders.begin(), kSharedFolders.end(), folder) != kSharedFolders.end();
}

}  // namespace

Verification::Verification(const std::string& folder) : m_folder(folder) {
    if (const auto error = m_tree.Open(folder)) {
        throw CommandError(folder + ": " + error.message());
    }
}

void Verification::Check(const std::string& package, const std::vector<OwnedFile>& files) {
    for (const OwnedFile& file : files) {
        if (m_tree.HasManyOpen()) {
            m_tree.Forget();
        }
        CheckFile(package, file);
    }
}

void Verification::CheckFile(const std::string& package, const OwnedFile& file) {
    FolderTree::Kind kind{};
    std::string place;
    const std::error_code error = m_tree.Look(file.path, kind, place);
    if (error == std::errc::not_a_directory || (!error && kind == FolderTree::Kind::kNothing)) {
        m_differences.push_back({file.path, package, "missing", ""});
    } else if (error) {
        m_differences.push_back({file.path, package, "unreadable", error.message()});
    } else if (kind == FolderTree::Kind::kFolder) {
        m_differences.push_back({file.path, package, "changed", "is a folder"});
    } else {
        CheckContent(package, file);
    }
}

void Verification::CheckContent(const std::string& package, const OwnedFile& file) {
    ScopedFd content;
    std::string sum;
    std::error_code error = m_tree.OpenFile(file.path, content);
    if (error == std::errc::too_many_symbolic_link_levels) {
        m_differences.push_back({file.path, package, "changed", "is a link"});
        return;
    }
    if (error == PlatformError::kNotRegularFile) {
        m_differences.push_back({file.path, package, "changed", "is no regular file"});
        return;
    }
    if (!error) {
        error = ZelkaCore::Sha256OfFile(content, sum);
    }
    if (error) {
        m_differences.push_back({file.path, package, "unreadable", error.message()});
        return;
    }
    if (sum != file.sha256) {
        m_differences.push_back({file.path, package, "changed", "has another content"});
    }
    CheckMode(package, file);
}

void Verification::CheckMode(const std::string& package, const OwnedFile& file) {
    std::error_code error;
    const auto permissions = fs::symlink_status(m_folder + "/" + file.path, error).permissions();
    const unsigned mode = static_cast<unsigned>(permissions) & kModeBits;
    if (!error && mode != file.mode) {
        m_differences.push_back(
            {file.path, package, "mode", ModeText(mode) + " and not " + ModeText(file.mode)});
    }
}

void Verification::FindForeign(const std::map<std::string, std::string>& owners,
                               const std::string& package) {
    std::set<std::string> folders;
    for (const auto& [path, owner] : owners) {
        if ((package.empty() || owner == package) && !IsShared(FolderOf(path))) {
            folders.insert(FolderOf(path));
        }
    }
    for (const std::string& folder : folders) {
        FindForeignIn(folder, owners);
    }
}

void Verification::FindForeignIn(const std::string& folder,
                                 const std::map<std::string, std::string>& owners) {
    std::set<std::string> found;
    std::error_code error;
    for (fs::directory_iterator entry(m_folder + "/" + folder, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        const std::string name = entry->path().filename().string();
        std::string path = folder + "/";
        path += name;
        if (entry->symlink_status(ignored).type() != fs::file_type::directory &&
            !name.starts_with(ZelkaCore::kTemporaryPrefix) && !owners.contains(path)) {
            found.insert(std::move(path));
        }
    }
    // That a folder is missing shows in its files.
    if (error && error != std::errc::no_such_file_or_directory) {
        m_differences.push_back({folder, "", "unreadable", error.message()});
    }
    for (const std::string& path : found) {
        m_differences.push_back({path, "", "foreign", "is no package's"});
    }
}
