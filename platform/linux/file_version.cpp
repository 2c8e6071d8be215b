#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "platform/error.h"
#include "platform/folder_tree.h"

namespace {

FileVersion VersionFrom(const struct stat& status) {
    return {.device = status.st_dev,
            .inode = status.st_ino,
            .size = status.st_size,
            .modified = std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 +
                        std::int64_t{status.st_mtim.tv_nsec}};
}

FileVersion VersionBehind(int file) {
    struct stat status {};
    return fstat(file, &status) == 0 ? VersionFrom(status) : FileVersion();
}

// kReplaced unless the name is that of the given version, or of a link to it.
std::error_code CheckVersion(int folder, const std::string& name, const FileVersion& version) {
    struct stat status {};
    if (fstatat(folder, name.c_str(), &status, 0) != 0) {
        return LastSystemError();
    }
    return VersionFrom(status) == version ? std::error_code() : PlatformError::kReplaced;
}

}  // namespace

FileVersion VersionOf(std::FILE* file) {
    return VersionBehind(fileno(file));
}

FileVersion VersionOf(const ScopedFd& file) {
    return VersionBehind(file.Get());
}

// The system cannot rename on a condition. So it is looked before, and what came in between gets
// its name back.
std::error_code FolderTree::RenameIf(const FileVersion& version, const std::string& name,
                                     const std::string& to) {
    const int folder = m_root->fd.Get();
    if (const auto error = CheckVersion(folder, name, version)) {
        return error;
    }
    if (renameat(folder, name.c_str(), folder, to.c_str()) != 0) {
        return LastSystemError();
    }
    const auto error = CheckVersion(folder, to, version);
    if (error) {
        (void)renameat2(folder, to.c_str(), folder, name.c_str(), RENAME_NOREPLACE);
    }
    return error;
}

std::error_code FolderTree::DeleteIf(const FileVersion& version, const std::string& name,
                                     const std::string& aside) {
    if (const auto error = RenameIf(version, name, aside)) {
        return error;
    }
    return unlinkat(m_root->fd.Get(), aside.c_str(), 0) == 0 ? std::error_code()
                                                             : LastSystemError();
}
