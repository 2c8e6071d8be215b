#include "platform/private_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <thread>
#include <utility>

#include "platform/error.h"

namespace {

namespace fs = std::filesystem;

constexpr mode_t kPermissionBits = 07777;
constexpr mode_t kOthersBits = S_IRWXG | S_IRWXO;

// The permissions of a private file of this type; 0 for a type that there is none of.
mode_t PrivateMode(const struct stat& status) {
    if (S_ISDIR(status.st_mode)) {
        return S_IRWXU;
    }
    return S_ISREG(status.st_mode) ? S_IRUSR | S_IWUSR : 0;
}

std::error_code SyncFolder(const fs::path& folder) {
    const ScopedFd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd.IsOpen() && fsync(fd.Get()) == 0 ? std::error_code() : LastSystemError();
}

bool IsFolder(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

bool IsPrivate(const std::string& path) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
        return false;
    }
    const mode_t mode = PrivateMode(status);
    return mode != 0 && status.st_uid == geteuid() && (status.st_mode & kPermissionBits) == mode;
}

// Works on what is opened here, not on the name, which may lead elsewhere a moment later. The
// descriptor gives no access to the content, so that it can be had whatever the permissions are.
std::error_code MakePrivate(const std::string& path) {
    const ScopedFd file(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
        return LastSystemError();
    }
    if (PrivateMode(status) == 0) {
        return PlatformError::kNeitherFolderNorFile;
    }
    // The owner goes first: the old one could take the permissions back.
    if (status.st_uid != geteuid() &&
        fchownat(file.Get(), "", geteuid(), static_cast<gid_t>(-1), AT_EMPTY_PATH) != 0) {
        return LastSystemError();
    }
    // Such a descriptor is refused by fchmod(); its name below /proc leads to the same file.
    const std::string self = "/proc/self/fd/" + std::to_string(file.Get());
    return chmod(self.c_str(), PrivateMode(status)) == 0 ? std::error_code() : LastSystemError();
}

std::error_code CloseToOthers(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 || ((status.st_mode & kOthersBits) != 0 &&
                                             chmod(path.c_str(), status.st_mode & S_IRWXU) != 0)) {
        return LastSystemError();
    }
    return {};
}

std::error_code MakePrivateFolder(const std::string& path) {
    const bool isThere = mkdir(path.c_str(), S_IRWXU) == 0 || (errno == EEXIST && IsFolder(path));
    return isThere ? std::error_code() : LastSystemError();
}

std::error_code MakePrivateFolders(const std::string& path, std::string& failedPath) {
    if (path.empty() || IsFolder(path)) {
        return {};
    }
    const std::string parent = fs::path(path).parent_path().string();
    if (const auto error = MakePrivateFolders(parent, failedPath)) {
        return error;
    }
    if (const auto error = MakePrivateFolder(path)) {
        failedPath = path;
        return error;
    }
    const auto error = SyncFolder(parent);
    if (error) {
        failedPath = parent;
    }
    return error;
}

std::error_code MakePrivateFile(const std::string& path) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    const ScopedFd file(open(path.c_str(), kFlags, S_IRUSR | S_IWUSR));
    return file.IsOpen() ? std::error_code() : LastSystemError();
}

std::error_code MakeNamelessFile(const std::string& path, FileStream& stream) {
    constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC;
    (void)unlink(path.c_str());
    ScopedFd file(open(path.c_str(), kFlags, S_IRUSR | S_IWUSR));
    if (!file.IsOpen() || unlink(path.c_str()) != 0) {
        return LastSystemError();
    }
    return StreamOf(std::move(file), "w+b", stream);
}

std::error_code IdentityOf(const std::string& path, std::optional<FileIdentity>& identity) {
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0) {
        identity = FileIdentity{status.st_dev, status.st_ino};
        return {};
    }
    if (errno != ENOENT && errno != ENOTDIR) {
        return LastSystemError();
    }
    identity.reset();
    return {};
}

std::error_code FolderLock::Take(const std::string& folder, Kind kind,
                                 std::chrono::milliseconds patience,
                                 std::optional<FolderLock>& lock) {
    ScopedFd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd.IsOpen()) {
        if (errno != ENOENT) {
            return LastSystemError();
        }
        lock.reset();
        return {};
    }
    const auto deadline = std::chrono::steady_clock::now() + patience;
    const int operation = kind == Kind::Exclusive ? LOCK_EX : LOCK_SH;
    // The system has no file lock with a time limit, so a taken one is tried again.
    while (flock(fd.Get(), operation | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK && std::chrono::steady_clock::now() >= deadline) {
            return std::make_error_code(std::errc::timed_out);
        }
        if (errno == EWOULDBLOCK) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        } else if (errno != EINTR) {
            return LastSystemError();
        }
    }
    lock.reset();
    lock.emplace(FolderLock(std::move(fd)));
    return {};
}

FolderLock::~FolderLock() {
    if (m_folder.IsOpen()) {
        // Closing alone would leave the lock to a process that was forked meanwhile.
        (void)flock(m_folder.Get(), LOCK_UN);
    }
}
