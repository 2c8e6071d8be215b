#include "platform/linux/folder_access.h"

#include <fcntl.h>

#include <cerrno>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/error.h"
#include "platform/linux/folder_path.h"

namespace {

struct StreamCloser {
    void operator()(DIR* folder) const { (void)closedir(folder); }
};

}  // namespace

std::error_code OpenRegularAt(int folder, const std::string& name, int flags, ScopedFd& file,
                              struct stat& status) {
    ScopedFd opened(
        openat(folder, name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | flags));
    if (!opened.IsOpen() || fstat(opened.Get(), &status) != 0) {
        return LastSystemError();
    }
    if (!S_ISREG(status.st_mode)) {
        return PlatformError::kNotRegularFile;
    }
    file = std::move(opened);
    return {};
}

std::error_code VisitEntries(int folder,
                             const std::function<std::error_code(const dirent&)>& visitor) {
    ScopedFd fd(openat(folder, ".", kOpenFolder));
    const std::unique_ptr<DIR, StreamCloser> stream(fd.IsOpen() ? fdopendir(fd.Get()) : nullptr);
    if (!stream) {
        return LastSystemError();
    }
    (void)fd.Release();  // now the stream's own
    for (errno = 0; const dirent* entry = readdir(stream.get()); errno = 0) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        if (const auto error = visitor(*entry)) {
            return error;
        }
    }
    return errno == 0 ? std::error_code() : LastSystemError();
}
