#pragma once

#include <cstdint>

#include "platform/error.h"

// Events: flags that threads wait for. A handle is a number: it survives a round trip through a
// 64-bit integer, and no number is ever given out twice in a process, so an old or invented handle
// is refused and never reaches another event. Every operation may be called from any thread.

using HANDLE = std::intptr_t;

inline constexpr HANDLE INVALID_HANDLE_VALUE = -1;
inline constexpr DWORD INFINITE = 0xFFFFFFFF;  // a time-out, in milliseconds: wait without limit
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
inline constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;

// A new event, not inherited by child processes. One with manual reset stays signalled until
// ResetEvent; one with automatic reset wakes a single waiter and is unsignalled by that.
// Neither attributes nor names exist here: both pointers must be null.
// Returns 0 on failure: EINVAL for a pointer that is not null, otherwise what the system said.
HANDLE CreateEventW(const void* attributes, bool manualReset, bool initiallySignalled,
                    const wchar_t* name);

// False with EBADF if the handle is not that of an open event.
bool SetEvent(HANDLE event);
bool ResetEvent(HANDLE event);

// Waits until one of `count` events (1 to MAXIMUM_WAIT_OBJECTS) is signalled, for `timeoutMs`
// milliseconds at most. Returns WAIT_OBJECT_0 plus the index of the first signalled handle in the
// array, WAIT_TIMEOUT, or WAIT_FAILED: EBADF for a handle that is not open, EINVAL for a bad count
// or for `waitAll`, which is not offered. An event closed meanwhile stays waitable until this
// returns.
DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, bool waitAll, DWORD timeoutMs);

// Closes an event. False with EBADF if the handle is not open.
bool CloseHandle(HANDLE handle);

// Owns an event handle and closes it. 0 and INVALID_HANDLE_VALUE own nothing.
class ScopedHandle {
  public:
    ScopedHandle() = default;
    explicit ScopedHandle(HANDLE handle) : m_handle(handle) {}
    ScopedHandle(const ScopedHandle&) = delete;
    ScopedHandle& operator=(const ScopedHandle&) = delete;
    ~ScopedHandle() {
        if (IsValid()) {
            (void)CloseHandle(m_handle);
        }
    }

    [[nodiscard]] HANDLE Get() const { return m_handle; }
    [[nodiscard]] bool IsValid() const { return m_handle != 0 && m_handle != INVALID_HANDLE_VALUE; }

  private:
    HANDLE m_handle = INVALID_HANDLE_VALUE;
};
