// Files below a folder: read, shared between two names, deleted.

#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <string_view>

#include "platform/error.h"
#include "platform/folder_tree.h"
#include "platform/linux/folder_access.h"
#include "platform/linux/folder_path.h"

namespace {

constexpr mode_t kPermissions = 0777;
constexpr std::size_t kCopiedAtOnce = 0x1000000;

// A further name is not to be had there: on another file system, one without them, too many, or a
// file of somebody else's.
bool IsUnsharable(std::error_code error) {
    return error == std::errc::cross_device_link || error == std::errc::too_many_links ||
           error == std::errc::operation_not_permitted || error == std::errc::not_supported;
}

std::error_code CopyAll(int source, int target) {
    for (;;) {
        const ssize_t copied = sendfile(target, source, nullptr, kCopiedAtOnce);
        if (copied == 0) {
            return fsync(target) == 0 ? std::error_code() : LastSystemError();
        }
        if (copied < 0 && errno != EINTR) {
            return LastSystemError();
        }
    }
}

std::error_code CopyFile(int sourceFolder, const std::string& source, int targetFolder,
                         const std::string& target) {
    struct stat status {};
    ScopedFd from;
    if (const auto error = OpenRegularAt(sourceFolder, source, O_NOFOLLOW, from, status)) {
        return error;
    }
    const ScopedFd to(openat(targetFolder, target.c_str(),
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!to.IsOpen()) {
        return LastSystemError();
    }
    if (const auto error = CopyAll(from.Get(), to.Get())) {
        return error;
    }
    return fchmod(to.Get(), status.st_mode & kPermissions) == 0 ? std::error_code()
                                                                : LastSystemError();
}

std::error_code DeleteFilesIn(int folder) {
    return VisitEntries(folder, [&](const dirent& entry) {
        return unlinkat(folder, entry.d_name, 0) == 0 ? std::error_code() : LastSystemError();
    });
}

}  // namespace

std::error_code FolderTree::OpenFile(const std::string& path, ScopedFd& file) {
    FolderPtr folder;
    std::string name;
    if (const auto error = OpenParent(path, false, folder, name)) {
        return error;
    }
    struct stat status {};
    return OpenRegularAt(folder->fd.Get(), name, O_NOFOLLOW, file, status);
}

std::error_code FolderTree::ShareFile(const std::string& path, const std::string& to,
                                      const std::string& temporary) {
    FolderPtr source;
    FolderPtr target;
    std::string sourceName;
    std::string targetName;
    if (const auto error = OpenParent(path, false, source, sourceName)) {
        return error;
    }
    if (const auto error = OpenParent(to, true, target, targetName)) {
        return error;
    }
    const int folder = target->fd.Get();
    (void)unlinkat(folder, temporary.c_str(), 0);
    std::error_code error;
    if (linkat(source->fd.Get(), sourceName.c_str(), folder, temporary.c_str(), 0) != 0) {
        error = LastSystemError();
    }
    if (IsUnsharable(error)) {
        error = CopyFile(source->fd.Get(), sourceName, folder, temporary);
    }
    if (!error && renameat(folder, temporary.c_str(), folder, targetName.c_str()) != 0) {
        error = LastSystemError();
    }
    // A name of the same file is still there then, as well as what a failure has left.
    (void)unlinkat(folder, temporary.c_str(), 0);
    target->touched = true;
    m_touchedOthers = m_touchedOthers || HasManyOpen();
    return error;
}

std::error_code FolderTree::DeleteFolder(const std::string& path) {
    FolderPtr folder;
    std::error_code error = OpenFolder(path, false, folder);
    if (!error) {
        error = DeleteFilesIn(folder->fd.Get());
    }
    FolderPtr parent;
    std::string name;
    if (!error) {
        error = OpenParent(path, false, parent, name);
    }
    if (!error && unlinkat(parent->fd.Get(), name.c_str(), AT_REMOVEDIR) != 0) {
        error = LastSystemError();
    }
    m_folders.erase(path);
    return error == std::errc::no_such_file_or_directory ? std::error_code() : error;
}
