#include "zelka_core/store/wait_engine.h"

#include <algorithm>
#include <system_error>

namespace ZelkaCore {

namespace {

constexpr std::chrono::milliseconds kAskedEvery{1};

}  // namespace

CWaitEngine::CWaitEngine(CConditions& conditions)
    : m_conditions(conditions), m_listener(conditions, [this] { m_poller.Wake(); }) {
    if (const auto error = m_poller.Open()) {
        throw std::system_error(error, "no descriptor to wait with");
    }
}

void CWaitEngine::Gather() {
    TellWoken();
    const auto now = Clock::now();
    TellTimers(now);
    if (now - m_lastAsked >= kAskedEvery) {
        Ask(now);
    }
}

void CWaitEngine::Sleep() {
    if (m_listener.GoToSleep()) {
        Ask(m_timers.IsEmpty() ? Deadline() : m_timers.FirstTime());
        TellTimers(m_lastAsked);
    }
    TellWoken();
}

// Waits for descriptors until the deadline at most, without one as long as it takes.
void CWaitEngine::Ask(const Deadline& deadline) {
    m_ready.clear();
    const auto error = m_poller.Wait(deadline, m_ready);
    m_lastAsked = Clock::now();
    for (const Poller::Ready& ready : m_ready) {
        TellReady(ready);
    }
    if (error) {
        throw std::system_error(error, "the system refused to wait");
    }
}

void CWaitEngine::TellWoken() {
    m_listener.TakeWoken(m_woken);
    for (CConditions::Waiter* waiter : m_woken) {
        static_cast<CWait*>(waiter)->OnWoken();
    }
}

void CWaitEngine::TellTimers(Clock::time_point now) {
    while (!m_timers.IsEmpty() && m_timers.FirstTime() <= now) {
        CWait& wait = m_timers.First();
        m_timers.Remove(wait);
        wait.OnWoken();
    }
}

// A descriptor is told once: those who wait for something else of it go on.
void CWaitEngine::TellReady(const Poller::Ready& ready) {
    const auto found = m_watched.find(ready.descriptor);
    if (found == m_watched.end()) {
        return;
    }
    unsigned others = 0;
    for (const auto& [wait, events] : found->second) {
        if ((events & ready.events) == 0) {
            others |= events;
            continue;
        }
        for (Awaited& item : wait->m_items) {
            auto* awaited = std::get_if<AwaitedDescriptor>(&item);
            if (awaited != nullptr && awaited->descriptor == ready.descriptor &&
                (awaited->events & ready.events) != 0) {
                awaited->isReady = true;
            }
        }
        wait->OnWoken();
    }
    if (others != 0) {
        (void)m_poller.Arm(ready.descriptor, others);  // not if it was closed
    }
}

std::error_code CWaitEngine::Watch(CWait& wait, int descriptor, unsigned events) {
    unsigned together = events;
    const auto found = m_watched.find(descriptor);
    if (found != m_watched.end()) {
        for (const Watcher& watcher : found->second) {
            together |= watcher.events;
        }
    }
    const auto error = m_poller.Arm(descriptor, together);
    if (!error) {
        m_watched[descriptor].push_back({&wait, events});
    }
    return error;
}

void CWaitEngine::Unwatch(const CWait& wait, int descriptor) {
    const auto found = m_watched.find(descriptor);
    if (found == m_watched.end()) {
        return;
    }
    auto& watchers = found->second;
    const auto watcher = std::find_if(watchers.begin(), watchers.end(),
                                      [&](const Watcher& other) { return other.wait == &wait; });
    if (watcher != watchers.end()) {
        *watcher = watchers.back();
        watchers.pop_back();
    }
    if (watchers.empty()) {
        m_watched.erase(found);
    }
}

void CWaitEngine::WatchEventsAgain(const CWait& wait) {
    for (const Awaited& item : wait.m_items) {
        if (const auto* event = std::get_if<EventPtr>(&item)) {
            (void)m_poller.Arm(DescriptorOf(**event), Poller::kReadable);
        }
    }
}

}  // namespace ZelkaCore
