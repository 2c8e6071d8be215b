#include "platform/scoped_fd.h"

#include <unistd.h>

void ScopedFd::Reset(int fd) {
    const int old = std::exchange(m_fd, fd);
    if (old >= 0) {
        // Linux closes the descriptor whatever close() answers; there is nothing to try again.
        (void)close(old);
    }
}
