#include "platform/events.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <utility>

#include "platform/error.h"
#include "platform/poller.h"
#include "platform/scoped_fd.h"

class Event {
  public:
    ScopedFd fd;
    bool manualReset;
};

namespace {

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

EventPtr FindEvent(HANDLE event) {
    return Table().Find(event);
}

int DescriptorOf(const Event& event) {
    return event.fd.Get();
}

bool TakeSignal(const Event& event) {
    return event.manualReset ? Poller::IsReady(event.fd.Get(), Poller::kReadable) : Consume(event);
}

std::error_code CloseHandle(HANDLE handle) {
    return Table().Remove(handle) ? std::error_code() : NotOpen();
}
