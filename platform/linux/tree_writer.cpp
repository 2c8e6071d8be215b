#include "platform/tree_writer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <random>
#include <utility>

#include "platform/error.h"
#include "platform/file.h"

namespace {

constexpr unsigned kFileMode = 0644;
constexpr unsigned kPermissions = 0777;

// A batch of this many files or fewer is synced file by file, a larger one by whole file systems:
// waiting once for everything that is not on the disk yet is then less than waiting for each file's
// own journal entry.
constexpr std::size_t kFewSyncs = 16;
constexpr std::size_t kMaxFilesInBatch = 4096;
constexpr std::uint64_t kLeastReserve = 0x4000000;

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

// What is left of `free` without the reserve.
std::uint64_t LessReserve(std::uint64_t free, std::uint64_t total, std::uint64_t least) {
    const std::uint64_t reserve = std::min(std::max(total / 20, least), total / 4);
    return free - std::min(free, reserve);
}

// The permissions of the file at the name, or the usual ones if there is none.
unsigned PermissionsOf(int folder, const std::string& name) {
    struct stat status {};
    const bool isFile =
        fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode);
    return isFile ? status.st_mode : kFileMode;
}

}  // namespace

TreeWriter::~TreeWriter() {
    DropFile();
    DropFinished(0);
}

std::error_code TreeWriter::Open(const std::string& folder, const std::string& temporaryPrefix) {
    m_temporaryPrefix = temporaryPrefix + RandomDigits() + "-";
    return m_tree.Open(folder);
}

TreeWriter::Room TreeWriter::RoomLeft() const {
    struct statvfs status {};
    if (fstatvfs(m_tree.Root()->fd.Get(), &status) != 0) {
        return {};
    }
    const std::uint64_t block = std::max<std::uint64_t>(status.f_frsize, 1);
    const std::uint64_t least = (kLeastReserve + block - 1) / block;
    return {.blockSize = block,
            .bytes = LessReserve(status.f_bavail, status.f_blocks, least) * block,
            .files = status.f_files == 0 ? std::numeric_limits<std::uint64_t>::max()
                                         : LessReserve(status.f_favail, status.f_files, 0)};
}

std::error_code TreeWriter::MakeFolder(const std::string& path, unsigned permissions) {
    FolderTree::Kind kind{};
    std::string place;
    if (const auto error = m_tree.Look(path + "/", kind, place)) {
        return error;
    }
    FolderTree::FolderPtr folder;
    if (const auto error = m_tree.OpenFolder(path, true, folder)) {
        return error;
    }
    const bool isNew = kind == FolderTree::Kind::kNothing;
    return isNew ? Check(fchmod(folder->fd.Get(), permissions & kPermissions)) : std::error_code();
}

std::error_code TreeWriter::BeginFile(const std::string& path) {
    File file;
    if (const auto error = m_tree.OpenParent(path, true, file.folder, file.name)) {
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

std::error_code TreeWriter::FinishFile(std::optional<unsigned> permissions, unsigned* given) {
    const unsigned mode = kPermissions & (permissions ? *permissions
                                                      : PermissionsOf(m_file.folder->fd.Get(),
                                                                      m_file.name));
    if (fchmod(m_file.fd.Get(), mode) != 0) {
        const auto error = LastSystemError();
        DropFile();
        return error;
    }
    if (given != nullptr) {
        *given = mode;
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
    return m_finished.size() >= kMaxFilesInBatch || m_tree.HasManyOpen();
}

std::error_code TreeWriter::SyncFiles() const {
    if (m_finished.size() > kFewSyncs) {
        return m_tree.SyncFileSystems();
    }
    for (const File& file : m_finished) {
        if (fsync(file.fd.Get()) != 0) {
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
        error = Check(renameat(folder, file.temporaryName.c_str(), folder, file.name.c_str()));
        if (error) {
            failedPath = file.path;
            break;
        }
    }
    DropFinished(placed);
    const std::error_code folderError = m_tree.SyncFolders();
    m_tree.Forget();
    return error ? error : folderError;
}
