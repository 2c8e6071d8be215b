#include "zelka_core/store/database_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wx/log.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <string>
#include <system_error>
#include <thread>

#include "zelka_core/text.h"

namespace fs = std::filesystem;

namespace ZelkaCore {

namespace {

[[noreturn]] void ThrowErrno(const fs::path& path, int error = errno) {
    throw std::system_error(error, std::generic_category(), path.string());
}

fs::path WithSuffix(const fs::path& file, const char* suffix) {
    return file.string() + suffix;
}

void SyncFolder(const fs::path& folder) {
    const ScopedFd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd.IsOpen() || fsync(fd.Get()) != 0) {
        ThrowErrno(folder);
    }
}

std::string UtcNow() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    (void)gmtime_r(&now, &utc);
    std::array<char, sizeof "20260131T120000Z"> text{};
    (void)std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%SZ", &utc);
    return text.data();
}

fs::path FreeName(const fs::path& wanted) {
    fs::path name = wanted;
    for (int number = 2; IdentityOf(name) || IdentityOf(WithSuffix(name, "-wal")); ++number) {
        name = wanted.string() + "-" + std::to_string(number);
    }
    return name;
}

}  // namespace

std::optional<FileIdentity> IdentityOf(const fs::path& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) {
            return std::nullopt;
        }
        ThrowErrno(file);
    }
    return FileIdentity{status.st_dev, status.st_ino};
}

std::optional<FolderLock> FolderLock::Take(const fs::path& folder, Kind kind,
                                           std::chrono::milliseconds patience) {
    ScopedFd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd.IsOpen()) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        ThrowErrno(folder);
    }
    const auto deadline = std::chrono::steady_clock::now() + patience;
    const int operation = kind == Kind::Exclusive ? LOCK_EX : LOCK_SH;
    // The system has no file lock with a time limit, so a taken one is tried again.
    while (flock(fd.Get(), operation | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK && std::chrono::steady_clock::now() >= deadline) {
            throw std::system_error(ETIMEDOUT, std::generic_category(),
                                    folder.string() + " is locked by another user of it");
        }
        if (errno == EWOULDBLOCK) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        } else if (errno != EINTR) {
            ThrowErrno(folder);
        }
    }
    return FolderLock(std::move(fd));
}

FolderLock::~FolderLock() {
    if (m_folder.IsOpen()) {
        // Closing alone would leave the lock to a process that was forked meanwhile.
        (void)flock(m_folder.Get(), LOCK_UN);
    }
}

void MakePrivateFolders(const fs::path& folder) {
    if (folder.empty() || fs::is_directory(folder)) {
        return;
    }
    const fs::path parent = folder.parent_path();
    MakePrivateFolders(parent);
    if (mkdir(folder.c_str(), S_IRWXU) == 0) {
        SyncFolder(parent);
        return;
    }
    const int error = errno;
    if (error != EEXIST || !fs::is_directory(folder)) {
        ThrowErrno(folder, error);
    }
}

void MakePrivateFile(const fs::path& file) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    const ScopedFd fd(open(file.c_str(), kFlags, S_IRUSR | S_IWUSR));
    if (!fd.IsOpen()) {
        ThrowErrno(file);
    }
}

void MakeDatabasePrivate(const fs::path& file) {
    for (const char* suffix : {"", "-wal", "-shm"}) {
        const fs::path path = WithSuffix(file, suffix);
        struct stat status {};
        const bool open = stat(path.c_str(), &status) == 0 && (status.st_mode & 077U) != 0;
        if (open && chmod(path.c_str(), status.st_mode & S_IRWXU) != 0) {
            const std::string reason = std::generic_category().message(errno);
            wxLogWarning("'%s' stays open to others: %s", FromUtf8(path.string()),
                         FromUtf8(reason));
        }
    }
}

fs::path PutDatabaseAside(const fs::path& file) {
    fs::path target = FreeName(file.string() + ".damaged-" + UtcNow());
    // The database itself goes last: whatever stops this in between, the next start finds the
    // damaged database still in its place and does it again.
    for (const char* suffix : {"-wal", "-shm", ""}) {
        const fs::path source = WithSuffix(file, suffix);
        if (rename(source.c_str(), WithSuffix(target, suffix).c_str()) != 0 && errno != ENOENT) {
            ThrowErrno(source);
        }
    }
    return target;
}

}  // namespace ZelkaCore
