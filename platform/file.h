#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/scoped_fd.h"

// Files read and written by descriptor. Any thread; nothing here waits for anybody but the disk.

// Opens a file for reading. Anything but a regular file, such as a pipe that nobody writes to, is
// refused with PlatformError::kNotRegularFile and not waited for.
[[nodiscard]] std::error_code OpenRegularFile(const std::string& path, ScopedFd& file);

// Reads from where the descriptor stands to the file's end, `limit` bytes at most. Replaces
// `content`.
[[nodiscard]] std::error_code ReadAtMost(const ScopedFd& file, std::size_t limit,
                                         std::string& content);

// Writes all of it. After a failure some of it may have been written.
[[nodiscard]] std::error_code WriteAll(const ScopedFd& file, std::string_view content);

struct FileStreamCloser {
    void operator()(std::FILE* stream) const { (void)std::fclose(stream); }
};
using FileStream = std::unique_ptr<std::FILE, FileStreamCloser>;

// The C library's stream of an open file, which it owns from then on; after a failure the file is
// closed. `mode` is fdopen's.
[[nodiscard]] std::error_code StreamOf(ScopedFd file, const char* mode, FileStream& stream);

// OpenRegularFile, for the C library's functions.
[[nodiscard]] std::error_code OpenRegularStream(const std::string& path, FileStream& stream);

// Fills `buffer` from that offset on, as far as the file goes; `got` receives how far.
[[nodiscard]] std::error_code ReadAt(std::FILE* stream, std::uint64_t offset,
                                     std::span<char> buffer, std::size_t& got);

// Whether a pipe lies at the path, which opening it for writing would wait for.
bool IsPipe(const std::string& path);

// Why this user may not read and write the file or folder; empty if it may.
[[nodiscard]] std::error_code CheckAccess(const std::string& path);
