#pragma once

#include <functional>
#include <string>

#include "platform/scoped_fd.h"

// A forked process that does some work. What it writes to standard output comes to this object, and
// what it reads from standard input never comes. It is killed and collected with the object.
class ChildProcess {
  public:
    // `work` tells whether it was good, if it comes back at all.
    explicit ChildProcess(const std::function<bool()>& work);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    [[nodiscard]] unsigned long Pid() const { return static_cast<unsigned long>(m_pid); }

    // The next line that it writes, without the line end; empty when it has ended and all was read.
    [[nodiscard]] std::string ReadLine() const;

    // Waits until it has ended; true if it did so by itself and its work was good.
    [[nodiscard]] bool Succeeds() const;

  private:
    int m_pid = 0;
    ScopedFd m_lines;
};
