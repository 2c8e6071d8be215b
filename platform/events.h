#pragma once

#include <cstdint>
#include <memory>
#include <system_error>

// Events: flags that threads wait for. A handle is a number: it survives a round trip through a
// 64-bit integer, and no number is ever given out twice in a process, so an old or invented handle
// is refused and never reaches another event. Every operation may be called from any thread.

using HANDLE = std::intptr_t;

inline constexpr HANDLE INVALID_HANDLE_VALUE = -1;

// A new event, not inherited by child processes. One with manual reset stays signalled once it is;
// one with automatic reset is unsignalled by the one that takes the signal (TakeSignal).
[[nodiscard]] std::error_code CreateEventW(bool manualReset, bool initiallySignalled,
                                           HANDLE& event);

// EBADF if the handle is not that of an open event.
[[nodiscard]] std::error_code SetEvent(HANDLE event);
[[nodiscard]] std::error_code CloseHandle(HANDLE handle);

// An event behind its handle. It can be waited for (poller.h) as long as somebody keeps it, also
// after its handle is closed.
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
