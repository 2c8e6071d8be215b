#pragma once

#include <fcntl.h>

#include <string>

// Paths below a folder, as FolderTree has them.

inline constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

inline std::string BaseName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

inline std::string ParentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

inline std::string Join(const std::string& path, const std::string& name) {
    return path.empty() ? name : path + "/" + name;
}
