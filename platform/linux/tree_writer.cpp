#include "platform/tree_writer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <random>
#include <utility>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/linux/folder_path.h"
#include "platform/linux/tree_cleanup.h"
#include "platform/linux/work_queue.h"

namespace {

constexpr unsigned kFileMode = 0644;
constexpr unsigned kPermissions = 0777;

// A batch of this many files or fewer is synced file by file, a larger one by whole file systems:
// waiting once for everything that is not on the disk yet is then less than waiting for each file's
// own journal entry.
constexpr std::size_t kFewSyncs = 16;
constexpr std::size_t kMaxFilesInBatch = 8192;
constexpr std::size_t kMaxFilesInBundle = 256;
constexpr std::size_t kMaxBytesInBundle = 0x40000;
constexpr std::uint64_t kWriteBack = 0x800000;

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

// The permissions of the file that will be replaced, or the usual ones if there is none.
unsigned PermissionsOf(const FolderTree::Folder& folder, const std::string& name) {
    struct stat status {};
    const bool isFile = !folder.staged &&
                        fstatat(folder.fd.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                        S_ISREG(status.st_mode);
    return isFile ? status.st_mode : kFileMode;
}

std::error_code Create(const ScopedFd& folder, const std::string& name, ScopedFd& file) {
    file.Reset(openat(folder.Get(), name.c_str(),
                      O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    return file.IsOpen() ? std::error_code() : LastSystemError();
}

std::error_code SetMode(const FolderTree::Folder& folder, const std::string& name,
                        const ScopedFd& file, std::optional<unsigned> permissions,
                        unsigned* given) {
    const unsigned mode = kPermissions & (permissions ? *permissions : PermissionsOf(folder, name));
    if (fchmod(file.Get(), mode) != 0) {
        return LastSystemError();
    }
    if (given != nullptr) {
        *given = mode;
    }
    return {};
}

// The disk begins with what was written from there on, so that less is left to wait for.
void BeginWriteBack(const ScopedFd& file, std::uint64_t from) {
    (void)sync_file_range(file.Get(), static_cast<off64_t>(from), 0, SYNC_FILE_RANGE_WRITE);
}

// A witness that has no memory, or cannot work, fails the file.
std::error_code Witnessed(const TreeWriter::Witness& witness, std::string_view bytes) {
    try {
        if (witness) {
            witness(bytes);
        }
        return {};
    } catch (const std::exception&) {
        return std::make_error_code(std::errc::not_enough_memory);
    }
}

}  // namespace

TreeWriter::TreeWriter() : m_queue(std::make_unique<WorkQueue>()) {
}

TreeWriter::~TreeWriter() {
    DropFile();
    DropFinished(0);
    RemoveStaged();
}

std::error_code TreeWriter::Open(const std::string& folder, const std::string& temporaryPrefix) {
    m_temporaryPrefix = temporaryPrefix + RandomDigits() + "-";
    m_tree.Stage(m_temporaryPrefix + "folder-");
    return m_tree.Open(folder);
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

std::error_code TreeWriter::NewFile(const std::string& path, File& file) {
    if (const auto error = m_tree.OpenParent(path, true, file.folder, file.name)) {
        return error;
    }
    file.path = path;
    file.temporaryName =
        file.folder->staged ? file.name : m_temporaryPrefix + std::to_string(++m_temporaryCount);
    return {};
}

std::error_code TreeWriter::BeginFile(const std::string& path, Witness witness) {
    File file;
    if (const auto error = NewFile(path, file)) {
        return error;
    }
    if (const auto error = Create(file.folder->fd, file.temporaryName, file.fd)) {
        return error;
    }
    file.witness = std::move(witness);
    m_file = std::move(file);
    m_isFailed = false;
    return {};
}

bool TreeWriter::WriteFile(std::string_view bytes) {
    m_queue->AddInOrder([this, piece = std::string(bytes)] {
        if (!m_file.error) {
            m_file.error = Witnessed(m_file.witness, piece);
        }
        if (!m_file.error) {
            m_file.error = WriteAll(m_file.fd, piece);
        }
        m_file.size += piece.size();
        if (m_file.size - m_file.onItsWay >= kWriteBack) {
            BeginWriteBack(m_file.fd, std::exchange(m_file.onItsWay, m_file.size));
        }
        m_isFailed = static_cast<bool>(m_file.error);
    });
    return !m_isFailed;
}

std::error_code TreeWriter::FinishFile(std::optional<unsigned> permissions, unsigned* given) {
    m_queue->Finish();
    std::error_code error = m_file.error;
    if (!error) {
        error = SetMode(*m_file.folder, m_file.name, m_file.fd, permissions, given);
    }
    if (error) {
        DropFile();
        return error;
    }
    m_file.folder->touched = true;
    m_finished.push_back(std::exchange(m_file, {}));
    if (m_finished.size() > kFewSyncs) {
        m_finished.back().fd.Reset();
    }
    CloseIfMany();
    return {};
}

void TreeWriter::DropFile() {
    m_queue->Finish();
    if (m_file.folder) {
        (void)unlinkat(m_file.folder->fd.Get(), m_file.temporaryName.c_str(), 0);
        m_file = {};
    }
}

std::error_code TreeWriter::AddFile(const std::string& path, std::string content,
                                    std::optional<unsigned> permissions, Witness witness,
                                    unsigned* given) {
    File file;
    if (const auto error = NewFile(path, file)) {
        return error;
    }
    file.folder->touched = true;
    file.witness = std::move(witness);
    if (m_bundle.folder != file.folder || m_bundle.files.size() >= kMaxFilesInBundle ||
        m_bundle.bytes >= kMaxBytesInBundle) {
        SendBundle();
        m_bundle.folder = file.folder;
    }
    File& added = m_finished.emplace_back(std::move(file));  // stays where it is
    m_bundle.bytes += content.size();
    SmallFile& small = m_bundle.files.emplace_back();
    small.file = &added;
    small.content = std::move(content);
    small.permissions = permissions;
    small.given = given;
    small.staysOpen = m_finished.size() <= kFewSyncs;
    CloseIfMany();
    return {};
}

void TreeWriter::SendBundle() {
    if (!m_bundle.files.empty()) {
        m_queue->Add([files = std::exchange(m_bundle, {}).files] {
            std::for_each(files.begin(), files.end(), WriteWhole);
        });
    }
}

void TreeWriter::FinishWork() {
    SendBundle();
    m_queue->Finish();
}

void TreeWriter::WriteWhole(const SmallFile& small) {
    File& file = *small.file;
    file.error = Witnessed(file.witness, small.content);
    if (!file.error) {
        file.error = Create(file.folder->fd, file.temporaryName, file.fd);
    }
    if (!file.error) {
        file.error = WriteAll(file.fd, small.content);
    }
    if (!file.error) {
        file.error = SetMode(*file.folder, file.name, file.fd, small.permissions, small.given);
    }
    if (!small.staysOpen) {
        file.fd.Reset();
    }
}

// Only a small batch is synced by its descriptors; a large one would have too many of them.
void TreeWriter::CloseIfMany() {
    if (m_finished.size() == kFewSyncs + 1) {
        FinishWork();
        std::for_each(m_finished.begin(), m_finished.end(), [](File& file) { file.fd.Reset(); });
    }
}

void TreeWriter::DropFinished(std::size_t first) {
    FinishWork();
    for (; m_finished.size() > first; m_finished.pop_back()) {
        const File& file = m_finished.back();
        (void)unlinkat(file.folder->fd.Get(), file.temporaryName.c_str(), 0);
    }
}

bool TreeWriter::IsBatchFull() const {
    return m_finished.size() >= kMaxFilesInBatch || m_tree.HasManyOpen();
}

std::error_code TreeWriter::SyncFiles() {
    if (m_finished.size() > kFewSyncs) {
        return m_tree.SyncFileSystems();
    }
    for (const File& file : m_finished) {
        if (!file.error && fsync(file.fd.Get()) != 0) {
            return LastSystemError();
        }
    }
    return {};
}

std::error_code TreeWriter::PlaceFiles(std::size_t& placed, std::string& failedPath) {
    if (const auto error = m_tree.PlaceFolders(failedPath)) {
        return error;
    }
    for (; placed < m_finished.size(); ++placed) {
        const File& file = m_finished[placed];
        if (file.temporaryName == file.name) {
            continue;
        }
        const int folder = file.folder->fd.Get();
        if (renameat(folder, file.temporaryName.c_str(), folder, file.name.c_str()) != 0) {
            failedPath = file.path;
            return LastSystemError();
        }
        file.folder->touched = true;
    }
    return {};
}

std::error_code TreeWriter::Commit(std::string& failedPath) {
    FinishWork();
    const auto failed = std::find_if(m_finished.begin(), m_finished.end(),
                                     [](const File& file) { return bool(file.error); });
    std::error_code error;
    if (failed != m_finished.end()) {
        error = failed->error;
        failedPath = failed->path;
    }
    std::size_t placed = 0;
    const auto whole = static_cast<std::size_t>(failed - m_finished.begin());
    const std::error_code unsynced = SyncFiles();  // by the size of the batch, so before any goes
    DropFinished(whole);
    if (unsynced) {
        error = unsynced;
        failedPath.clear();
    } else if (const auto unplaced = PlaceFiles(placed, failedPath)) {
        error = unplaced;
    }
    DropFinished(placed);
    RemoveStaged();
    const std::error_code folderError = m_tree.SyncFolders();
    m_finished.clear();
    m_tree.Forget();
    return error ? error : folderError;
}

// Folders that did not come into their places, with what is in them.
void TreeWriter::RemoveStaged() {
    if (m_tree.HasStaged()) {
        const int root = m_tree.Root()->fd.Get();
        (void)RemoveTemporaryFilesBelow(ScopedFd(openat(root, ".", kOpenFolder)),
                                        m_temporaryPrefix);
    }
}
