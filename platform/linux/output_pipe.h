#pragma once

#include <cstddef>
#include <system_error>

#include "platform/program.h"
#include "platform/scoped_fd.h"

// One output of a program while it runs: the pipe that it writes to. What exceeds the content's
// limit is taken and dropped, so that the program never waits for a reader. One thread at a time.
class OutputPipe {
  public:
    // `limit` is how many bytes are kept.
    [[nodiscard]] std::error_code Open(std::size_t limit);

    // The end to wait for with poll; -1 once the other is closed everywhere.
    [[nodiscard]] int Reading() const { return m_reading.Get(); }
    // The end for the program. It is none of the standard descriptors.
    [[nodiscard]] int Writing() const { return m_writing.Get(); }
    void CloseWriting() { m_writing.Reset(); }

    // Takes some of what is there, without waiting.
    void Take();
    // Takes what lies in the pipe now, and not what somebody may go on writing. Closes the pipe.
    void TakeTheRest();

    ProgramOutput output;  // what came through

  private:
    std::size_t TakeAtMost(std::size_t limit);

    std::size_t m_limit = 0;
    ScopedFd m_reading;
    ScopedFd m_writing;
};
