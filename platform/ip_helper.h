#pragma once

#include "platform/error.h"
#include "platform/events.h"
#include "platform/scoped_fd.h"

// Notice of changes of the host's IP addresses, those of version 4 and 6. Nothing here blocks. An
// operation that fails leaves an `errno` value in WSAGetLastError(), or one of the codes named.

// The record of one notification. It belongs to the caller and lives until the notification has
// fired or is given up; it is not copied. hEvent may be 0.
struct OVERLAPPED {
    HANDLE hEvent = 0;
    ScopedFd Internal;  // open while the notification is armed; for this layer alone
};

// An event with manual reset, unsignalled; 0 on failure. Closing 0 does nothing and gives false.
HANDLE WSACreateEvent();
bool WSACloseEvent(HANDLE event);

DWORD WSAGetLastError();

// Arms a notification that fires once, at the first address that is added, removed or altered from
// now on; the renewal of an address's lifetime is such a change, too. Stores a handle that is not
// 0, unsignals the event, and returns ERROR_IO_PENDING, which WSAGetLastError() then gives as well.
// Any other result is a failure: the handle is untouched and nothing is armed.
DWORD NotifyAddrChange(HANDLE* handle, OVERLAPPED* overlapped);

// Asks, with one system call, whether a notification has fired. True: it has, is not armed any
// more, and its event is signalled; any number of changes counts as one, and so does a number that
// the system could not keep. False with ERROR_IO_INCOMPLETE: still waiting. False with any other
// code: the question failed; EINVAL if the handle is not that of this armed record or `wait`, which
// is not offered, is true. `*bytes` is set to 0 if the result is true.
bool GetOverlappedResult(HANDLE handle, OVERLAPPED* overlapped, DWORD* bytes, bool wait);

// Gives an armed notification up. False with EINVAL if it is not armed.
bool CancelIPChangeNotify(OVERLAPPED* overlapped);
