#include "platform/protected_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/linux/folder_access.h"
#include "platform/linux/folder_path.h"

namespace {

// An access list that lets others write shows in the bits of the group.
std::error_code CheckProtected(const struct stat& status) {
    if (status.st_uid != 0 && status.st_uid != geteuid()) {
        return PlatformError::kOwnedByOthers;
    }
    return (status.st_mode & (S_IWGRP | S_IWOTH)) != 0 ? PlatformError::kOpenToOthers
                                                       : std::error_code();
}

}  // namespace

std::error_code ProtectedFolder::Open(const std::string& path) {
    ScopedFd folder(open(path.c_str(), kOpenFolder | O_NOFOLLOW));
    if (!folder.IsOpen()) {
        return errno == ELOOP ? std::make_error_code(std::errc::not_a_directory)
                              : LastSystemError();
    }
    struct stat status {};
    if (fstat(folder.Get(), &status) != 0) {
        return LastSystemError();
    }
    if (const auto error = CheckProtected(status)) {
        return error;
    }
    m_folder = std::move(folder);
    return {};
}

std::error_code ProtectedFolder::List(std::vector<std::string>& names) const {
    std::vector<std::string> found;
    const auto error = VisitEntries(m_folder.Get(), [&](const dirent& entry) {
        found.emplace_back(entry.d_name);
        return std::error_code();
    });
    if (error) {
        return error;
    }
    std::sort(found.begin(), found.end());
    names = std::move(found);
    return {};
}

std::error_code ProtectedFolder::Read(const std::string& name, std::size_t limit,
                                      std::string& content) const {
    ScopedFd file;
    struct stat status {};
    if (const auto error = OpenRegularAt(m_folder.Get(), name, O_NOFOLLOW, file, status)) {
        return error == std::errc::too_many_symbolic_link_levels ? PlatformError::kNotRegularFile
                                                                 : error;
    }
    if (const auto error = CheckProtected(status)) {
        return error;
    }
    std::string found;
    if (const auto error = ReadAtMost(file, limit + 1, found)) {
        return error;
    }
    if (found.size() > limit) {
        return std::make_error_code(std::errc::file_too_large);
    }
    content = std::move(found);
    return {};
}
