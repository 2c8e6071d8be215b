#pragma once

#include <cstddef>
#include <string>
#include <system_error>

#include "platform/scoped_fd.h"

// The standard input of a program while it runs: the pipe that it reads from. Writing to one that
// nobody reads any more raises SIGPIPE, which this process does not die of. One thread at a time.
class InputPipe {
  public:
    [[nodiscard]] std::error_code Open(std::string content);

    // The end for the program; -1 if the pipe was not opened. It is none of the standard ones.
    [[nodiscard]] int Reading() const { return m_reading.Get(); }
    void CloseReading() { m_reading.Reset(); }

    // The end to wait for with poll; -1 once all was written, or nobody is left to read it.
    [[nodiscard]] int Writing() const { return m_writing.Get(); }

    // Writes some of what is left, without waiting.
    void Give();
    void Close();

  private:
    std::string m_content;
    std::size_t m_written = 0;
    ScopedFd m_reading;
    ScopedFd m_writing;
};
