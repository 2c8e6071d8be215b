#pragma once

#include <sys/types.h>

#include "platform/scoped_fd.h"

// Collects a child that was killed, and whose end nobody waits for. It waits a moment for the end,
// which usually comes at once; a child that the system holds longer is left over. `process` is its
// pidfd, or not open if there was none to get, which makes this wait for the end. Any thread.
void CollectKilled(pid_t pid, ScopedFd process) noexcept;

// Collects those that were left over and have ended by now. Any thread.
void CollectLeftOver();
