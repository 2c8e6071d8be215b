#include "platform/poller.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <utility>

#include "platform/error.h"

namespace {

constexpr std::size_t kToldAtOnce = 64;

std::uint32_t ToEpoll(unsigned events) {
    return ((events & Poller::kReadable) != 0 ? EPOLLIN | EPOLLRDHUP : 0U) |
           ((events & Poller::kWritable) != 0 ? EPOLLOUT : 0U) |
           ((events & Poller::kUrgent) != 0 ? EPOLLPRI : 0U);
}

unsigned FromEpoll(std::uint32_t told) {
    if ((told & (EPOLLERR | EPOLLHUP)) != 0) {
        return Poller::kAll;
    }
    return ((told & (EPOLLIN | EPOLLRDHUP)) != 0 ? Poller::kReadable : 0U) |
           ((told & EPOLLOUT) != 0 ? Poller::kWritable : 0U) |
           ((told & EPOLLPRI) != 0 ? Poller::kUrgent : 0U);
}

// Milliseconds, rounded up so that a wait never ends early.
int TimeLeft(const std::optional<Poller::Clock::time_point>& deadline) {
    if (!deadline) {
        return -1;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*deadline - Poller::Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 1'000'000'000));
}

}  // namespace

std::error_code Poller::Open() {
    ScopedFd epoll(epoll_create1(EPOLL_CLOEXEC));
    ScopedFd wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!epoll.IsOpen() || !wake.IsOpen()) {
        return LastSystemError();
    }
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = wake.Get();
    if (epoll_ctl(epoll.Get(), EPOLL_CTL_ADD, wake.Get(), &event) != 0) {
        return LastSystemError();
    }
    m_epoll = std::move(epoll);
    m_wake = std::move(wake);
    return {};
}

// A descriptor stays known, disarmed, after it was told: to arm it again is one call. One that was
// closed is unknown, also when its number is in use again.
std::error_code Poller::Arm(int descriptor, unsigned events) {
    epoll_event event = {};
    event.events = ToEpoll(events) | EPOLLONESHOT;
    event.data.fd = descriptor;
    if (epoll_ctl(m_epoll.Get(), EPOLL_CTL_MOD, descriptor, &event) == 0) {
        return {};
    }
    if (errno == ENOENT && epoll_ctl(m_epoll.Get(), EPOLL_CTL_ADD, descriptor, &event) == 0) {
        return {};
    }
    return LastSystemError();
}

unsigned Poller::FromPoll(std::int64_t numbers) {
    return ((numbers & POLLIN) != 0 ? kReadable : 0U) |
           ((numbers & POLLOUT) != 0 ? kWritable : 0U) | ((numbers & POLLPRI) != 0 ? kUrgent : 0U);
}

bool Poller::IsReady(int descriptor, unsigned events) {
    const int asked = ((events & kReadable) != 0 ? POLLIN : 0) |
                      ((events & kWritable) != 0 ? POLLOUT : 0) |
                      ((events & kUrgent) != 0 ? POLLPRI : 0);
    pollfd entry{.fd = descriptor, .events = static_cast<short>(asked), .revents = 0};
    return poll(&entry, 1, 0) > 0;
}

std::error_code Poller::Wait(const std::optional<Clock::time_point>& deadline,
                             std::vector<Ready>& ready) {
    std::array<epoll_event, kToldAtOnce> told;
    int count = -1;
    do {
        count = epoll_wait(m_epoll.Get(), told.data(), kToldAtOnce, TimeLeft(deadline));
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        return LastSystemError();
    }
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = told[static_cast<std::size_t>(i)];
        if (event.data.fd == m_wake.Get()) {
            std::uint64_t wakes = 0;
            (void)!read(m_wake.Get(), &wakes, sizeof wakes);
        } else {
            ready.push_back({event.data.fd, FromEpoll(event.events)});
        }
    }
    return {};
}

void Poller::Wake() const {
    const std::uint64_t one = 1;
    (void)!write(m_wake.Get(), &one, sizeof one);  // a full counter wakes as well
}
