#include "platform/tree_writer.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <set>

#include "platform/error.h"
#include "platform/file.h"

namespace {

constexpr mode_t kFolderMode = 0755;

// A batch of this many files or fewer is synced file by file, a larger one by whole file systems:
// waiting once for everything that is not on the disk yet is then less than waiting for each file's
// own journal entry.
constexpr std::size_t kFewSyncs = 16;
constexpr std::size_t kMaxFilesInBatch = 4096;
constexpr std::size_t kMaxFoldersInBatch = 128;

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

std::error_code Check(int result) {
    return result < 0 ? LastSystemError() : std::error_code();
}

std::string RandomDigits() {
    std::random_device device;
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (int i = 0; i < 4; ++i) {
        for (unsigned value = device() & 0xffffU, j = 0; j < 4; ++j, value >>= 4U) {
            text += digits[value & 0xfU];
        }
    }
    return text;
}

std::string BaseName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

std::string ParentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

}  // namespace

TreeWriter::~TreeWriter() {
    DropFile();
    DropFinished(0);
}

std::error_code TreeWriter::Open(const std::string& folder, const std::string& temporaryPrefix) {
    auto root = std::make_shared<Folder>();
    root->fd.Reset(open(folder.c_str(), kOpenFolder));
    if (!root->fd.IsOpen()) {
        return LastSystemError();
    }
    // Tells RemoveTemporaryFilesBelow that somebody is at work. Where there are no locks it works
    // without.
    (void)flock(root->fd.Get(), LOCK_SH);
    m_root = std::move(root);
    m_temporaryPrefix = temporaryPrefix + RandomDigits() + "-";
    return {};
}

std::uint64_t TreeWriter::FreeBytes() const {
    struct statvfs status {};
    if (fstatvfs(m_root->fd.Get(), &status) != 0) {
        return 0;
    }
    return std::uint64_t{status.f_bavail} * status.f_frsize;
}

std::string TreeWriter::FindLink(const std::string& path) const {
    for (std::size_t end = 0; end < path.size();) {
        end = std::min(path.find('/', end + 1), path.size());
        std::string upper = path.substr(0, end);
        struct stat status {};
        if (fstatat(m_root->fd.Get(), upper.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            return {};
        }
        if (S_ISLNK(status.st_mode)) {
            return upper;
        }
    }
    return {};
}

std::error_code TreeWriter::OpenSubfolder(const FolderPtr& parent, const std::string& name,
                                          FolderPtr& folder) {
    const int parentFd = parent->fd.Get();
    auto opened = std::make_shared<Folder>();
    opened->fd.Reset(openat(parentFd, name.c_str(), kOpenFolder | O_NOFOLLOW));
    if (!opened->fd.IsOpen() && errno == ENOENT) {
        if (mkdirat(parentFd, name.c_str(), kFolderMode) != 0 && errno != EEXIST) {
            return LastSystemError();
        }
        parent->touched = true;
        opened->fd.Reset(openat(parentFd, name.c_str(), kOpenFolder | O_NOFOLLOW));
    }
    if (!opened->fd.IsOpen()) {
        return LastSystemError();
    }
    folder = std::move(opened);
    return {};
}

std::error_code TreeWriter::OpenFolder(const std::string& path, FolderPtr& folder) {
    const auto known = m_folders.find(path);
    if (known != m_folders.end()) {
        folder = known->second;
        return {};
    }
    FolderPtr opened = m_root;
    if (!path.empty()) {
        FolderPtr parent;
        if (const auto error = OpenFolder(ParentOf(path), parent)) {
            return error;
        }
        if (const auto error = OpenSubfolder(parent, BaseName(path), opened)) {
            return error;
        }
    }
    m_folders.emplace(path, opened);
    folder = std::move(opened);
    return {};
}

std::error_code TreeWriter::MakeFolder(const std::string& path, unsigned permissions) {
    FolderPtr parent;
    if (const auto error = OpenFolder(ParentOf(path), parent)) {
        return error;
    }
    const std::string name = BaseName(path);
    const bool isNew = mkdirat(parent->fd.Get(), name.c_str(), kFolderMode) == 0;
    if (!isNew && errno != EEXIST) {
        return LastSystemError();
    }
    FolderPtr folder;
    if (const auto error = OpenSubfolder(parent, name, folder)) {
        return error;
    }
    if (!isNew) {
        return {};
    }
    parent->touched = true;
    folder->touched = true;
    return Check(fchmod(folder->fd.Get(), permissions & 0777U));
}

std::error_code TreeWriter::BeginFile(const std::string& path) {
    File file;
    if (const auto error = OpenFolder(ParentOf(path), file.folder)) {
        return error;
    }
    file.path = path;
    file.temporaryName = m_temporaryPrefix + std::to_string(++m_temporaryCount);
    file.fd.Reset(openat(file.folder->fd.Get(), file.temporaryName.c_str(),
                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.fd.IsOpen()) {
        return LastSystemError();
    }
    m_file = std::move(file);
    return {};
}

// NOLINTNEXTLINE(readability-make-member-function-const): it changes the file.
std::error_code TreeWriter::WriteFile(std::string_view bytes) {
    return WriteAll(m_file.fd, bytes);
}

std::error_code TreeWriter::FinishFile(unsigned permissions) {
    if (fchmod(m_file.fd.Get(), permissions & 0777U) != 0) {
        const auto error = LastSystemError();
        DropFile();
        return error;
    }
    m_file.folder->touched = true;
    m_finished.push_back(std::exchange(m_file, {}));
    // Only a small batch is synced by its descriptors; a large one would have too many of them.
    if (m_finished.size() > kFewSyncs) {
        m_finished.back().fd.Reset();
    }
    if (m_finished.size() == kFewSyncs + 1) {
        std::for_each(m_finished.begin(), m_finished.end(), [](File& file) { file.fd.Reset(); });
    }
    return {};
}

void TreeWriter::DropFile() {
    if (m_file.folder) {
        (void)unlinkat(m_file.folder->fd.Get(), m_file.temporaryName.c_str(), 0);
        m_file = {};
    }
}

void TreeWriter::DropFinished(std::size_t first) {
    for (std::size_t i = first; i < m_finished.size(); ++i) {
        const File& file = m_finished[i];
        (void)unlinkat(file.folder->fd.Get(), file.temporaryName.c_str(), 0);
    }
    m_finished.clear();
}

bool TreeWriter::IsBatchFull() const {
    return m_finished.size() >= kMaxFilesInBatch || m_folders.size() >= kMaxFoldersInBatch;
}

std::error_code TreeWriter::SyncFileSystems() const {
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
    return {};
}

std::error_code TreeWriter::SyncFiles() const {
    if (m_finished.size() > kFewSyncs) {
        return SyncFileSystems();
    }
    for (const File& file : m_finished) {
        if (fsync(file.fd.Get()) != 0) {
            return LastSystemError();
        }
    }
    return {};
}

std::error_code TreeWriter::SyncFolders() const {
    const auto isTouched = [](const auto& folder) { return folder.second->touched; };
    if (std::count_if(m_folders.begin(), m_folders.end(), isTouched) > std::ptrdiff_t{kFewSyncs}) {
        return SyncFileSystems();
    }
    for (const auto& [path, folder] : m_folders) {
        if (folder->touched && fsync(folder->fd.Get()) != 0) {
            return LastSystemError();
        }
    }
    return {};
}

std::error_code TreeWriter::Commit(std::string& failedPath) {
    std::error_code error = SyncFiles();
    std::size_t placed = 0;
    for (; !error && placed < m_finished.size(); ++placed) {
        const File& file = m_finished[placed];
        const int folder = file.folder->fd.Get();
        const std::string name = BaseName(file.path);
        error = Check(renameat(folder, file.temporaryName.c_str(), folder, name.c_str()));
        if (error) {
            failedPath = file.path;
            break;
        }
    }
    DropFinished(placed);
    const std::error_code folderError = SyncFolders();
    m_root->touched = false;
    m_folders.clear();
    return error ? error : folderError;
}

namespace {

struct FolderCloser {
    void operator()(DIR* folder) const { (void)closedir(folder); }
};

std::error_code RemoveBelow(ScopedFd fd, const std::string& prefix);

// What is neither a temporary file nor a folder is passed over.
std::error_code RemoveIfTemporary(int folder, const dirent& entry, const std::string& prefix) {
    unsigned type = entry.d_type;
    if (type == DT_UNKNOWN) {
        struct stat status {};
        if (fstatat(folder, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            return LastSystemError();
        }
        type = IFTODT(status.st_mode);
    }
    if (type == DT_DIR) {
        ScopedFd subfolder(openat(folder, entry.d_name, kOpenFolder | O_NOFOLLOW));
        return subfolder.IsOpen() ? RemoveBelow(std::move(subfolder), prefix) : LastSystemError();
    }
    if (type == DT_REG && std::string_view(entry.d_name).starts_with(prefix)) {
        return Check(unlinkat(folder, entry.d_name, 0));
    }
    return {};
}

std::error_code RemoveBelow(ScopedFd fd, const std::string& prefix) {
    const std::unique_ptr<DIR, FolderCloser> folder(fdopendir(fd.Get()));
    if (!folder) {
        return LastSystemError();
    }
    const int folderFd = fd.Release();  // now the stream's own
    std::error_code first;
    for (errno = 0; const dirent* entry = readdir(folder.get()); errno = 0) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        if (const auto error = RemoveIfTemporary(folderFd, *entry, prefix); error && !first) {
            first = error;
        }
    }
    return first || errno == 0 ? first : LastSystemError();
}

}  // namespace

std::error_code RemoveTemporaryFilesBelow(const std::string& folder,
                                          const std::string& temporaryPrefix) {
    ScopedFd fd(open(folder.c_str(), kOpenFolder));
    if (!fd.IsOpen()) {
        return LastSystemError();
    }
    // The lock is for the length of the clean-up and goes with the descriptor.
    if (flock(fd.Get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        return {};
    }
    return RemoveBelow(std::move(fd), temporaryPrefix);
}
