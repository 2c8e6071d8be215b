#pragma once

#include <cstddef>

namespace crash {

// An alternate signal stack of the calling thread, with a guard page below it, for as long as the
// object lives. Does nothing if the thread has one already or the memory is not to be had.
class AltStack {
  public:
    AltStack();
    ~AltStack();
    AltStack(const AltStack&) = delete;
    AltStack& operator=(const AltStack&) = delete;

  private:
    void* m_memory = nullptr;
    std::size_t m_size = 0;
};

}  // namespace crash
