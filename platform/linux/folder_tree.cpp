#include "platform/folder_tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <set>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/linux/folder_path.h"

namespace {

namespace fs = std::filesystem;

constexpr mode_t kFolderMode = 0755;
constexpr int kMostLinks = 40;  // as the system follows on one path
constexpr std::size_t kMostOpenFolders = 128;
constexpr std::size_t kFewSyncs = 16;

// The target of a symbolic link; ENOTDIR for anything else that is no folder.
std::error_code ReadLink(int folder, const std::string& name, std::string& target) {
    std::string text(PATH_MAX, '\0');
    const ssize_t size = readlinkat(folder, name.c_str(), text.data(), text.size());
    if (size < 0) {
        return errno == EINVAL ? std::make_error_code(std::errc::not_a_directory)
                               : LastSystemError();
    }
    target = text.substr(0, static_cast<std::size_t>(size));
    return {};
}

}  // namespace

// One way down from the root, a part at a time.
class FolderTree::Walk {
  public:
    Walk(FolderTree& tree, bool makes) : m_tree(tree), m_current(tree.m_root), m_makes(makes) {}

    std::error_code To(const std::string& path) {
        Push(path);
        while (!m_parts.empty()) {
            const std::string part = std::move(m_parts.back());
            m_parts.pop_back();
            if (const auto error = part == ".." ? Up() : Down(part)) {
                m_parts.push_back(part);
                return error;
            }
        }
        m_tree.m_folders.emplace(m_current->path, m_current);
        return {};
    }

    [[nodiscard]] const FolderPtr& Current() const { return m_current; }

    // Where the walk was to end, without the links that it has met.
    [[nodiscard]] std::string Destination() const {
        std::string path = m_current->path;
        for (std::size_t i = m_parts.size(); i-- > 0;) {
            path = m_parts[i] == ".." ? ParentOf(path) : Join(path, m_parts[i]);
        }
        return path;
    }

  private:
    // The parts lie in reverse order, the next one last.
    void Push(const std::string& path) {
        const auto first = static_cast<std::ptrdiff_t>(m_parts.size());
        for (std::size_t at = 0; at < path.size();) {
            const std::size_t end = std::min(path.find('/', at), path.size());
            const std::string part = path.substr(at, end - at);
            if (!part.empty() && part != ".") {
                m_parts.push_back(part);
            }
            at = end + 1;
        }
        std::reverse(m_parts.begin() + first, m_parts.end());
    }

    // Comes from links alone. The path of where the walk is holds none, so the way up from there is
    // the way down to its parent.
    std::error_code Up() {
        if (m_current->path.empty()) {
            return PlatformError::kLeavesFolder;
        }
        Push(ParentOf(m_current->path));
        m_current = m_tree.m_root;
        return {};
    }

    std::error_code Down(const std::string& name) {
        const std::string path = Join(m_current->path, name);
        if (m_tree.IsReserved(path)) {
            return PlatformError::kReservedPlace;
        }
        const auto known = m_tree.m_folders.find(path);
        if (known != m_tree.m_folders.end()) {
            m_current = known->second;
            return {};
        }
        if (!m_makes && path == m_tree.m_missing) {
            return std::make_error_code(std::errc::no_such_file_or_directory);
        }
        auto folder = std::make_shared<Folder>();
        folder->path = path;
        std::error_code error = OpenPart(name, *folder);
        if (m_makes && error == std::errc::no_such_file_or_directory) {
            error = MakePart(name, folder);
        }
        if (error == std::errc::not_a_directory ||
            error == std::errc::too_many_symbolic_link_levels) {
            return Follow(name);
        }
        if (error) {
            m_tree.m_missing = error == std::errc::no_such_file_or_directory ? path : std::string();
            return error;
        }
        if (!m_tree.HasManyOpen()) {
            m_tree.m_folders.emplace(path, folder);
        }
        m_current = std::move(folder);
        return {};
    }

    std::error_code OpenPart(const std::string& name, Folder& folder) const {
        folder.fd.Reset(openat(m_current->fd.Get(), name.c_str(), kOpenFolder | O_NOFOLLOW));
        folder.staged = m_current->staged;
        return folder.fd.IsOpen() ? std::error_code() : LastSystemError();
    }

    std::error_code MakePart(const std::string& name, const FolderPtr& folder) {
        const bool stages =
            !m_tree.m_stagePrefix.empty() && !m_current->staged && !m_tree.HasManyOpen();
        const std::string made =
            stages ? m_tree.m_stagePrefix + std::to_string(++m_tree.m_stageCount) : name;
        const bool isNew = mkdirat(m_current->fd.Get(), made.c_str(), kFolderMode) == 0;
        if (!isNew && errno != EEXIST) {
            return LastSystemError();
        }
        if (const auto error = OpenPart(made, *folder); error || !isNew) {
            return error;
        }
        if (stages) {
            folder->staged = true;
            m_tree.m_staged.push_back({m_current, made, folder});
        }
        m_tree.m_missing.clear();
        m_current->touched = folder->touched = true;
        m_tree.m_touchedOthers = m_tree.m_touchedOthers || m_tree.HasManyOpen();
        // The mask counts for the making, not for this.
        return fchmod(folder->fd.Get(), kFolderMode) == 0 ? std::error_code() : LastSystemError();
    }

    std::error_code Follow(const std::string& name) {
        std::string target;
        if (const auto error = ReadLink(m_current->fd.Get(), name, target)) {
            return error;
        }
        if (++m_links > kMostLinks) {
            return std::make_error_code(std::errc::too_many_symbolic_link_levels);
        }
        if (target.starts_with('/')) {
            return PlatformError::kLeavesFolder;
        }
        Push(target);
        return {};
    }

    FolderTree& m_tree;
    FolderPtr m_current;
    std::vector<std::string> m_parts;
    const bool m_makes;
    int m_links = 0;
};

std::error_code FolderTree::Open(const std::string& folder) {
    auto root = std::make_shared<Folder>();
    root->fd.Reset(open(folder.c_str(), kOpenFolder));
    if (!root->fd.IsOpen()) {
        return LastSystemError();
    }
    m_root = std::move(root);
    m_name = folder;
    Forget();
    return {};
}

void FolderTree::Reserve(const std::string& path) {
    std::error_code error;
    const fs::path root = fs::weakly_canonical(m_name, error);
    const fs::path place = error ? fs::path() : fs::weakly_canonical(path, error);
    const std::string relative = error ? "" : place.lexically_relative(root).string();
    if (!relative.empty() && relative != "." && !relative.starts_with("..")) {
        m_reserved.push_back(relative);
    }
}

bool FolderTree::IsReserved(const std::string& place) const {
    return std::any_of(m_reserved.begin(), m_reserved.end(), [&](const std::string& reserved) {
        return place == reserved || place.starts_with(reserved + "/");
    });
}

std::error_code FolderTree::OpenFolder(const std::string& path, bool makes, FolderPtr& folder) {
    m_missing.clear();
    Walk walk(*this, makes);
    const std::error_code error = walk.To(path);
    m_missing.clear();
    if (!error) {
        folder = walk.Current();
    }
    return error;
}

std::error_code FolderTree::OpenParent(const std::string& path, bool makes, FolderPtr& folder,
                                       std::string& name) {
    FolderPtr parent;
    if (const auto error = OpenFolder(ParentOf(path), makes, parent)) {
        return error;
    }
    if (IsReserved(Join(parent->path, BaseName(path)))) {
        return PlatformError::kReservedPlace;
    }
    folder = std::move(parent);
    name = BaseName(path);
    return {};
}

std::error_code FolderTree::Look(const std::string& path, Kind& kind, std::string& place) {
    const std::string name = BaseName(path);
    Walk walk(*this, false);
    const std::error_code error = walk.To(ParentOf(path));
    if (error && error != std::errc::no_such_file_or_directory) {
        return error;
    }
    const std::string found = name.empty() ? walk.Destination() : Join(walk.Destination(), name);
    if (IsReserved(found)) {
        return PlatformError::kReservedPlace;
    }
    struct stat status {};
    Kind known = Kind::kNothing;
    if (!error && fstatat(walk.Current()->fd.Get(), name.c_str(), &status,
                          AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH) == 0) {
        known = S_ISDIR(status.st_mode) ? Kind::kFolder : Kind::kFile;
    } else if (!error && errno != ENOENT) {
        return LastSystemError();
    }
    kind = known;
    place = found;
    return {};
}

std::error_code FolderTree::DeleteFile(const std::string& path) {
    FolderPtr folder;
    std::string name;
    std::error_code error = OpenParent(path, false, folder, name);
    if (!error && unlinkat(folder->fd.Get(), name.c_str(), 0) != 0) {
        error = LastSystemError();
    }
    const bool isGone =
        error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory;
    return isGone ? std::error_code() : error;
}

bool FolderTree::HasManyOpen() const {
    return m_folders.size() >= kMostOpenFolders;
}

void FolderTree::Stage(const std::string& prefix) {
    m_stagePrefix = prefix;
}

std::error_code FolderTree::PlaceFolders(std::string& failedPath) {
    for (; !m_staged.empty(); m_staged.pop_front()) {
        const Staged& first = m_staged.front();
        const std::string name = BaseName(first.folder->path);
        const int parent = first.parent->fd.Get();
        if (renameat(parent, first.temporaryName.c_str(), parent, name.c_str()) != 0) {
            failedPath = first.folder->path;
            return LastSystemError();
        }
        first.parent->touched = true;
    }
    return {};
}

void FolderTree::Forget() {
    m_root->touched = false;
    m_missing.clear();
    m_touchedOthers = false;
    m_staged.clear();
    m_folders.clear();
    m_folders.emplace("", m_root);
}

std::error_code FolderTree::SyncFileSystems() {
    std::set<dev_t> synced;
    for (const auto& [path, folder] : m_folders) {
        struct stat status {};
        if (fstat(folder->fd.Get(), &status) != 0) {
            return LastSystemError();
        }
        if (synced.insert(status.st_dev).second && syncfs(folder->fd.Get()) != 0) {
            return LastSystemError();
        }
    }
    for (const auto& [path, folder] : m_folders) {
        folder->touched = false;
    }
    m_touchedOthers = false;
    return {};
}

std::error_code FolderTree::SyncFolders() {
    const auto isTouched = [](const auto& folder) { return folder.second->touched; };
    const auto touched = std::count_if(m_folders.begin(), m_folders.end(), isTouched);
    if (m_touchedOthers || touched > std::ptrdiff_t{kFewSyncs}) {
        return SyncFileSystems();
    }
    for (const auto& [path, folder] : m_folders) {
        if (folder->touched && fsync(folder->fd.Get()) != 0) {
            return LastSystemError();
        }
    }
    return {};
}
