#pragma once

#include <system_error>

#include "platform/scoped_fd.h"

// Notice of changes of the host's IP addresses, those of version 4 and 6. Nothing here blocks.

// The record of one notification. It belongs to the caller, who uses it on one thread.
struct OVERLAPPED {
    ScopedFd Internal;  // open while the notification is armed; for this layer alone

    [[nodiscard]] bool IsArmed() const { return Internal.IsOpen(); }
};

// Arms a notification that fires once, at the first address that is added, removed or altered from
// now on; the renewal of an address's lifetime is such a change, too. After a failure nothing is
// armed.
[[nodiscard]] std::error_code NotifyAddrChange(OVERLAPPED& overlapped);

// Asks, with one system call, whether a notification has fired. If it has, it is not armed any
// more; any number of changes counts as one, and so does a number that the system could not keep.
// After a failure it is still armed; EINVAL if it was not.
[[nodiscard]] std::error_code GetOverlappedResult(OVERLAPPED& overlapped, bool& hasFired);

// Gives a notification up. Nothing to do if it is not armed.
void CancelIPChangeNotify(OVERLAPPED& overlapped);
