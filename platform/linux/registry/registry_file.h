#pragma once

#include <optional>
#include <string>
#include <system_error>

// The registry file on the disk.

// The path that UseRegistryFile was given last; empty before.
const std::string& RegistryFilePath();

// The content; empty for a missing file. Nothing if there is a file that cannot be read, that is
// not a regular one, or that is larger than 1 MiB. That and the lines that make no sense are told
// by warnings, once in a process each.
std::optional<std::string> ReadRegistryFile(const std::string& path);

// Whether this user may replace the file.
bool CanReplaceRegistryFile(const std::string& path);

// Puts a new content in place of that of an existing file, whose mode, owner and group are kept,
// and which stays what it is when it is a link to another file. A reader sees the old content or
// the new one. After a failure the old content is there.
[[nodiscard]] std::error_code ReplaceRegistryFile(const std::string& path,
                                                  const std::string& content);
