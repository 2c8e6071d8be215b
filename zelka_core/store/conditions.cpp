#include "zelka_core/store/conditions.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace ZelkaCore {

namespace {

using Clock = CondVar::Clock;

// Milliseconds left until the deadline, rounded up.
DWORD TimeLeft(const std::optional<Clock::time_point>& deadline) {
    if (!deadline) {
        return INFINITE;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
    return static_cast<DWORD>(std::clamp<std::int64_t>(left.count(), 0, INFINITE - 1));
}

// About how many bytes a raised name takes: here, and once it was waited for, in the observer.
std::size_t SizeOf(const std::string& name) {
    constexpr std::size_t kNode = 96;
    return 2 * (kNode + name.size());
}

HANDLE MakeWakeEvent() {
    HANDLE event = 0;
    if (const auto error = CreateEventW(false, false, event)) {
        throw std::system_error(error, "no event to wait with");
    }
    return event;
}

}  // namespace

unsigned int CConditions::Raise(const std::string& name) {
    const MutexLock lock(m_mutex);
    if (++m_raises[name] == 1) {
        m_size += SizeOf(name);
    }
    unsigned int count = 0;
    for (Waiter* waiter : m_waiters) {
        const auto& names = waiter->names;
        if (!waiter->woken && std::find(names.begin(), names.end(), name) != names.end()) {
            waiter->woken = true;
            (void)SetEvent(waiter->wake);  // open as long as its owner is in the list
            ++count;
        }
    }
    return count;
}

std::size_t CConditions::Size() const {
    const MutexLock lock(m_mutex);
    return m_size;
}

std::size_t CConditions::SizeOfNew(const std::string& name) const {
    const MutexLock lock(m_mutex);
    return m_raises.contains(name) ? 0 : SizeOf(name);
}

CConditions::Waiter::Waiter(CConditions& owner, std::vector<std::string> awaited, HANDLE event)
    : conditions(owner), names(std::move(awaited)), wake(event) {
    const MutexLock lock(conditions.m_mutex);
    conditions.m_waiters.push_back(this);
}

CConditions::Waiter::~Waiter() {
    const MutexLock lock(conditions.m_mutex);
    std::erase(conditions.m_waiters, this);
}

std::uint64_t CConditions::Raises(const std::string& name) const {
    const auto found = m_raises.find(name);
    return found == m_raises.end() ? 0 : found->second;
}

CConditionObserver::CConditionObserver(CConditions& conditions)
    : m_conditions(conditions), m_wake(MakeWakeEvent()) {
}

CConditionObserver::Result CConditionObserver::Wait(const std::vector<Item>& items,
                                                    DWORD timeoutMs) {
    Deadline deadline;
    if (timeoutMs != INFINITE) {
        deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    }
    const Result result = WaitUntil(items, deadline);
    if (result.kind == Result::Kind::kFired) {
        if (const auto* name = std::get_if<std::string>(&items[result.index])) {
            const MutexLock lock(m_conditions.m_mutex);
            m_seen[*name] = m_conditions.Raises(*name);
        }
    }
    return result;
}

CConditionObserver::Result CConditionObserver::WaitUntil(const std::vector<Item>& items,
                                                         const Deadline& deadline) {
    std::vector<std::string> names;
    for (const Item& item : items) {
        if (const auto* name = std::get_if<std::string>(&item)) {
            names.push_back(*name);
        }
    }
    const CConditions::Waiter waiter(m_conditions, std::move(names), m_wake.Get());
    for (;;) {
        const auto raised = FirstRaised(items);
        // Events that stand before a raised condition are asked first, without waiting for them.
        const Result result =
            WaitForHandles(items, raised.value_or(items.size()), raised ? 0 : TimeLeft(deadline));
        if (result.kind == Result::Kind::kTimeout && raised) {
            return {Result::Kind::kFired, *raised, {}};
        }
        const bool onlyWoken = result.kind == Result::Kind::kFired && result.index == items.size();
        if (!onlyWoken) {
            return result;
        }
    }
}

std::optional<std::size_t> CConditionObserver::FirstRaised(const std::vector<Item>& items) {
    const MutexLock lock(m_conditions.m_mutex);
    for (std::size_t i = 0; i < items.size(); ++i) {
        const auto* name = std::get_if<std::string>(&items[i]);
        if (name != nullptr && m_conditions.Raises(*name) > Seen(*name)) {
            return i;
        }
    }
    return std::nullopt;
}

std::uint64_t CConditionObserver::Seen(const std::string& name) const {
    const auto found = m_seen.find(name);
    return found == m_seen.end() ? 0 : found->second;
}

// Waits for the events among the first `count` items, and for a raise when nothing is raised yet.
// An index of items.size() stands for that raise.
CConditionObserver::Result CConditionObserver::WaitForHandles(const std::vector<Item>& items,
                                                              std::size_t count, DWORD timeoutMs) {
    std::vector<HANDLE> handles;
    std::vector<std::size_t> indices;
    for (std::size_t i = 0; i < count; ++i) {
        if (const auto* handle = std::get_if<HANDLE>(&items[i])) {
            handles.push_back(*handle);
            indices.push_back(i);
        }
    }
    handles.push_back(m_wake.Get());
    indices.push_back(items.size());
    DWORD answer = WAIT_TIMEOUT;
    if (const auto error = WaitForMultipleObjects(handles, timeoutMs, answer)) {
        return {Result::Kind::kFailed, 0, error};
    }
    if (answer == WAIT_TIMEOUT) {
        return {Result::Kind::kTimeout, 0, {}};
    }
    return {Result::Kind::kFired, indices[answer - WAIT_OBJECT_0], {}};
}

}  // namespace ZelkaCore
