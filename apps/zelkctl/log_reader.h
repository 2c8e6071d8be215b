#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/file.h"
#include "platform/private_file.h"

// Reads a log on while it is written, from file to file: a full one is kept as `NAME.1.log`, and up
// to `NAME.5.log` later. What is missed is told on standard error. For one thread.
class LogReader {
  public:
    using Take = std::function<void(std::string_view bytes)>;

    // `path`: of the file that is written, NAME.log.
    explicit LogReader(std::string path) : m_path(std::move(path)) {}

    // Begins with the file that has the name now.
    std::error_code Open() { return OpenRegularStream(m_path, m_file); }

    [[nodiscard]] std::FILE* File() const { return m_file.get(); }

    // Hands on what has been written since. The last line of a file always gets its end.
    void ReadOn(const Take& take);

  private:
    void Drain(const Take& take);
    [[nodiscard]] std::string KeptPath(int age) const;
    [[nodiscard]] FileIdentity Mine() const;
    [[nodiscard]] int Age() const;
    FileStream Next() const;
    FileStream OldestKept() const;

    std::string m_path;
    FileStream m_file;
    bool m_isInLine = false;  // the last byte that was handed on ends no line
};
