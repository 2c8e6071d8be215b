#pragma once

#include <wx/string.h>

#include <cstddef>
#include <string>

#include "platform/scoped_fd.h"

namespace ZelkaCore {

// One output of a program: the pipe that it writes to, and the first MiB of what came through. The
// rest is taken and dropped, so that the program never waits for a reader. One thread at a time.
class OutputPipe {
  public:
    // False, with the reason in errno, if there are no descriptors left.
    bool Open();

    // The end to wait for with poll; -1 once the other is closed everywhere.
    [[nodiscard]] int Reading() const { return m_reading.Get(); }
    // The end for the program. It is none of the standard descriptors.
    [[nodiscard]] int Writing() const { return m_writing.Get(); }
    void CloseWriting() { m_writing.Reset(); }

    // Takes some of what is there, without waiting.
    void Take();
    // Takes what lies in the pipe now, and not what somebody may go on writing.
    void TakeTheRest();

    // The content as text. A warning names the program and the output if something was dropped.
    [[nodiscard]] wxString Text(const std::string& program, const char* name);

  private:
    std::size_t TakeAtMost(std::size_t limit);
    void DropBrokenCharacter();

    ScopedFd m_reading;
    ScopedFd m_writing;
    std::string m_content;
    std::size_t m_dropped = 0;  // bytes
};

}  // namespace ZelkaCore
