#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <system_error>

#include "platform/error.h"

// Events: flags that threads wait for. A handle is a number: it survives a round trip through a
// 64-bit integer, and no number is ever given out twice in a process, so an old or invented handle
// is refused and never reaches another event. Every operation may be called from any thread.

using HANDLE = std::intptr_t;

inline constexpr HANDLE INVALID_HANDLE_VALUE = -1;
inline constexpr DWORD INFINITE = 0xFFFFFFFF;  // a time-out, in milliseconds: wait without limit
inline constexpr DWORD WAIT_OBJECT_0 = 0;      // plus the index of the event that was signalled
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr std::size_t MAXIMUM_WAIT_OBJECTS = 64;

// A new event, not inherited by child processes. One with manual reset stays signalled until
// ResetEvent; one with automatic reset wakes a single waiter and is unsignalled by that.
[[nodiscard]] std::error_code CreateEventW(bool manualReset, bool initiallySignalled,
                                           HANDLE& event);

// EBADF if the handle is not that of an open event.
[[nodiscard]] std::error_code SetEvent(HANDLE event);
[[nodiscard]] std::error_code ResetEvent(HANDLE event);
[[nodiscard]] std::error_code CloseHandle(HANDLE handle);

// Waits until one of the events (1 to MAXIMUM_WAIT_OBJECTS) is signalled, for `timeoutMs`
// milliseconds at most. `answer` is WAIT_OBJECT_0 plus the index of the first signalled one, or
// WAIT_TIMEOUT. EBADF for a handle that is not open, EINVAL for a bad count. An event closed
// meanwhile stays waitable until this returns.
[[nodiscard]] std::error_code WaitForMultipleObjects(std::span<const HANDLE> handles,
                                                     DWORD timeoutMs, DWORD& answer);

// An event behind its handle, for a wait together with other things (poller.h): it can be waited
// for as long as somebody keeps it, also after its handle is closed.
class Event;
using EventPtr = std::shared_ptr<Event>;

// Null if the handle is not that of an open event.
EventPtr FindEvent(HANDLE event);

// Readable while the event is signalled.
int DescriptorOf(const Event& event);

// Whether the event is signalled; takes the signal off one with automatic reset.
bool TakeSignal(const Event& event);

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
