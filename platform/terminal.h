#pragma once

#include <cstdio>
#include <system_error>

#include "platform/scoped_fd.h"

// The terminal that a person sits at.

// Whether the stream leads to one.
bool IsTerminal(std::FILE* stream);

// Ctrl-C (SIGINT) as something to wait for: while an object lives, it ends nothing. Made while
// there is no other thread, as threads inherit the setting. For one thread.
class Interrupts {
  public:
    Interrupts() = default;
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    // Comes before everything else.
    [[nodiscard]] std::error_code Open();

    // Ready to be read when it has come.
    [[nodiscard]] int Descriptor() const { return m_signals.Get(); }

    // Forgets those that have come.
    void Clear() const;

  private:
    ScopedFd m_signals;
};
