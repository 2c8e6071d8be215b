#include "platform/events.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <vector>

#include "platform/poller.h"
#include "platform/scoped_fd.h"

class Event {
  public:
    ScopedFd fd;
    bool manualReset;
};

namespace {

using Clock = std::chrono::steady_clock;

// Handles by number. An event lives as long as it is in the table or somebody waits for it.
class EventTable {
  public:
    HANDLE Add(EventPtr event) {
        const std::lock_guard lock(m_mutex);
        m_events.emplace(++m_lastHandle, std::move(event));
        return m_lastHandle;
    }

    EventPtr Find(HANDLE handle) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_events.find(handle);
        return found == m_events.end() ? nullptr : found->second;
    }

    bool Remove(HANDLE handle) {
        const std::lock_guard lock(m_mutex);
        return m_events.erase(handle) != 0;
    }

  private:
    // A number that nobody comes upon by counting: 1 and 2 are what an invented handle often is.
    // Lua holds handles as doubles, so they stay below 2 to the power of 53.
    static HANDLE FirstHandle() {
        std::random_device random;
        return (HANDLE{1} << 40) + (static_cast<HANDLE>(random()) << 8);
    }

    std::mutex m_mutex;
    HANDLE m_lastHandle = FirstHandle();  // guarded by m_mutex
    std::map<HANDLE, EventPtr> m_events;  // guarded by m_mutex
};

// Never destroyed: threads that outlive static destruction may still hold handles.
EventTable& Table() {
    static auto* table = new EventTable;
    return *table;
}

std::error_code NotOpen() {
    return std::make_error_code(std::errc::bad_file_descriptor);
}

std::error_code Signal(const Event& event) {
    const std::uint64_t one = 1;
    // A full counter answers EAGAIN: the event is signalled already.
    const bool isSignalled =
        write(event.fd.Get(), &one, sizeof one) == sizeof one || errno == EAGAIN;
    return isSignalled ? std::error_code() : LastSystemError();
}

// Takes the signal off the event. False if there is none (any more).
bool Consume(const Event& event) {
    std::uint64_t count = 0;
    return read(event.fd.Get(), &count, sizeof count) == sizeof count;
}

// Milliseconds for poll(), rounded up so that a wait never ends early.
int PollTimeout(const std::optional<Clock::time_point>& deadline) {
    if (!deadline) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 1'000'000'000));
}

// The first event that poll() found signalled and that no other waiter took meanwhile.
std::optional<DWORD> TakeSignalled(const std::vector<EventPtr>& events,
                                   const std::array<pollfd, MAXIMUM_WAIT_OBJECTS>& fds) {
    for (std::size_t i = 0; i < events.size(); ++i) {
        if ((fds[i].revents & POLLIN) != 0 && (events[i]->manualReset || Consume(*events[i]))) {
            return static_cast<DWORD>(i);
        }
    }
    return std::nullopt;
}

std::error_code WaitForEvents(const std::vector<EventPtr>& events, DWORD timeoutMs, DWORD& answer) {
    std::optional<Clock::time_point> deadline;
    if (timeoutMs != INFINITE) {
        deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    }
    std::array<pollfd, MAXIMUM_WAIT_OBJECTS> fds{};
    for (std::size_t i = 0; i < events.size(); ++i) {
        fds[i] = {.fd = events[i]->fd.Get(), .events = POLLIN, .revents = 0};
    }
    for (;;) {
        const int timeout = PollTimeout(deadline);
        const int ready = poll(fds.data(), events.size(), timeout);
        if (ready < 0 && errno != EINTR) {
            return LastSystemError();
        }
        if (ready > 0) {
            if (const auto index = TakeSignalled(events, fds)) {
                answer = WAIT_OBJECT_0 + *index;
                return {};
            }
        }
        if (timeout == 0) {
            answer = WAIT_TIMEOUT;
            return {};
        }
    }
}

}  // namespace

std::error_code CreateEventW(bool manualReset, bool initiallySignalled, HANDLE& event) {
    ScopedFd fd(eventfd(initiallySignalled ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!fd.IsOpen()) {
        return LastSystemError();
    }
    event = Table().Add(std::make_shared<Event>(Event{std::move(fd), manualReset}));
    return {};
}

std::error_code SetEvent(HANDLE event) {
    const EventPtr found = Table().Find(event);
    return found ? Signal(*found) : NotOpen();
}

std::error_code ResetEvent(HANDLE event) {
    const EventPtr found = Table().Find(event);
    if (!found) {
        return NotOpen();
    }
    (void)Consume(*found);
    return {};
}

EventPtr FindEvent(HANDLE event) {
    return Table().Find(event);
}

int DescriptorOf(const Event& event) {
    return event.fd.Get();
}

bool TakeSignal(const Event& event) {
    return event.manualReset ? Poller::IsReady(event.fd.Get(), Poller::kReadable) : Consume(event);
}

std::error_code WaitForMultipleObjects(std::span<const HANDLE> handles, DWORD timeoutMs,
                                       DWORD& answer) {
    if (handles.empty() || handles.size() > MAXIMUM_WAIT_OBJECTS) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    std::vector<EventPtr> events;
    events.reserve(handles.size());
    for (const HANDLE handle : handles) {
        EventPtr event = Table().Find(handle);
        if (!event) {
            return NotOpen();
        }
        events.push_back(std::move(event));
    }
    return WaitForEvents(events, timeoutMs, answer);
}

std::error_code CloseHandle(HANDLE handle) {
    return Table().Remove(handle) ? std::error_code() : NotOpen();
}
