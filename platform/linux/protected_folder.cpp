#include "platform/protected_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/linux/folder_path.h"

namespace {

struct StreamCloser {
    void operator()(DIR* folder) const { (void)closedir(folder); }
};

// An access list that lets others write shows in the bits of the group.
std::error_code CheckProtected(const ScopedFd& file, struct stat& status) {
    if (fstat(file.Get(), &status) != 0) {
        return LastSystemError();
    }
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
    if (const auto error = CheckProtected(folder, status)) {
        return error;
    }
    m_folder = std::move(folder);
    return {};
}

std::error_code ProtectedFolder::List(std::vector<std::string>& names) const {
    const int fd = openat(m_folder.Get(), ".", kOpenFolder);
    const std::unique_ptr<DIR, StreamCloser> stream(fd < 0 ? nullptr : fdopendir(fd));
    if (!stream) {
        return LastSystemError();
    }
    std::vector<std::string> found;
    for (errno = 0; const dirent* entry = readdir(stream.get()); errno = 0) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            found.emplace_back(name);
        }
    }
    if (errno != 0) {
        return LastSystemError();
    }
    std::sort(found.begin(), found.end());
    names = std::move(found);
    return {};
}

std::error_code ProtectedFolder::Read(const std::string& name, std::size_t limit,
                                      std::string& content) const {
    constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const ScopedFd file(openat(m_folder.Get(), name.c_str(), kFlags));
    if (!file.IsOpen()) {
        return errno == ELOOP ? PlatformError::kNotRegularFile : LastSystemError();
    }
    struct stat status {};
    if (const auto error = CheckProtected(file, status)) {
        return error;
    }
    if (!S_ISREG(status.st_mode)) {
        return PlatformError::kNotRegularFile;
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
