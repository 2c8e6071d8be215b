#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/error.h"
#include "platform/linux/folder_access.h"

std::error_code OpenRegularFile(const std::string& path, ScopedFd& file) {
    struct stat status {};
    return OpenRegularAt(AT_FDCWD, path, 0, file, status);
}

std::error_code ReadAtMost(const ScopedFd& file, std::size_t limit, std::string& content) {
    std::string text(limit, '\0');
    std::size_t length = 0;
    while (length < limit) {
        const ssize_t count = read(file.Get(), text.data() + length, limit - length);
        if (count == 0) {
            break;
        }
        if (count < 0 && errno != EINTR) {
            return LastSystemError();
        }
        length += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    text.resize(length);
    content = std::move(text);
    return {};
}

std::error_code WriteAll(const ScopedFd& file, std::string_view content) {
    while (!content.empty()) {
        const ssize_t count = write(file.Get(), content.data(), content.size());
        if (count < 0 && errno != EINTR) {
            return LastSystemError();
        }
        content.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return {};
}

std::error_code ReadAt(std::FILE* stream, std::uint64_t offset, std::span<char> buffer,
                       std::size_t& got) {
    std::size_t count = 0;
    while (count < buffer.size()) {
        const ssize_t more = pread(fileno(stream), buffer.data() + count, buffer.size() - count,
                                   static_cast<off_t>(offset + count));
        if (more == 0) {
            break;
        }
        if (more < 0 && errno != EINTR) {
            return LastSystemError();
        }
        count += more > 0 ? static_cast<std::size_t>(more) : 0;
    }
    got = count;
    return {};
}

std::error_code StreamOf(ScopedFd file, const char* mode, FileStream& stream) {
    FileStream opened(fdopen(file.Get(), mode));
    if (!opened) {
        return LastSystemError();
    }
    (void)file.Release();  // now the stream's own
    stream = std::move(opened);
    return {};
}

std::error_code OpenRegularStream(const std::string& path, FileStream& stream) {
    ScopedFd file;
    if (const auto error = OpenRegularFile(path, file)) {
        return error;
    }
    return StreamOf(std::move(file), "rb", stream);
}

bool IsPipe(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

std::error_code CheckAccess(const std::string& path) {
    if (faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK, AT_EACCESS) != 0) {
        return LastSystemError();
    }
    return {};
}
