#include "zelka_core/store/conditions.h"

#include <algorithm>
#include <utility>

namespace ZelkaCore {

namespace {

// About how many bytes of memory a raised name takes: here, and once it was waited for, with the
// one who has seen it.
std::size_t SizeOf(const std::string& name) {
    constexpr std::size_t kNode = 96;
    return 2 * (kNode + name.size());
}

}  // namespace

unsigned int CConditions::Raise(const std::string& name, bool forGood) {
    const MutexLock lock(m_mutex);
    Condition& condition = m_conditions[name];
    if (condition.lastRaise == 0) {
        m_size += SizeOf(name);
    }
    condition.lastRaise = ++m_lastRaise;
    condition.forGood = condition.forGood || forGood;
    unsigned int count = 0;
    for (Waiter* waiter : condition.waiters) {
        if (std::exchange(waiter->m_woken, true)) {
            continue;
        }
        ++count;
        Listener& listener = waiter->m_listener;
        listener.m_woken.push_back(waiter);
        if (std::exchange(listener.m_sleeps, false)) {
            listener.m_wake();
        }
    }
    return count;
}

std::uint64_t CConditions::LastRaise() const {
    const MutexLock lock(m_mutex);
    return m_lastRaise;
}

std::size_t CConditions::Size() const {
    const MutexLock lock(m_mutex);
    return m_size;
}

std::size_t CConditions::SizeOfNew(const std::string& name) const {
    const MutexLock lock(m_mutex);
    const auto found = m_conditions.find(name);
    return found != m_conditions.end() && found->second.lastRaise != 0 ? 0 : SizeOf(name);
}

void CConditions::Listener::TakeWoken(std::vector<Waiter*>& woken) {
    const MutexLock lock(m_conditions.m_mutex);
    woken.clear();
    woken.swap(m_woken);
    m_sleeps = false;
}

bool CConditions::Listener::GoToSleep() {
    const MutexLock lock(m_conditions.m_mutex);
    m_sleeps = m_woken.empty();
    return m_sleeps;
}

void CConditions::Waiter::AwaitCondition(const std::string& name) {
    CConditions& conditions = m_listener.m_conditions;
    const MutexLock lock(conditions.m_mutex);
    auto& condition = *conditions.m_conditions.try_emplace(name).first;
    auto& waiters = condition.second.waiters;
    m_entries.push_back({&condition, waiters.insert(waiters.end(), this)});
}

void CConditions::Waiter::AwaitNoCondition() {
    if (m_entries.empty()) {
        return;
    }
    CConditions& conditions = m_listener.m_conditions;
    const MutexLock lock(conditions.m_mutex);
    for (const Entry& entry : m_entries) {
        Condition& condition = entry.condition->second;
        condition.waiters.erase(entry.place);
        if (condition.waiters.empty() && condition.lastRaise == 0) {
            conditions.m_conditions.erase(std::string(entry.condition->first));
        }
    }
    m_entries.clear();
    if (std::exchange(m_woken, false)) {
        std::erase(m_listener.m_woken, this);
    }
}

bool CConditions::Waiter::SeesRaise(std::size_t place, Looks& looks) {
    const MutexLock lock(m_listener.m_conditions.m_mutex);
    const auto& [name, condition] = *m_entries[place].condition;
    if (std::exchange(m_woken, false)) {
        std::erase(m_listener.m_woken, this);  // if it was not taken yet
    }
    const auto seen = looks.m_seen.find(name);
    const std::uint64_t before =
        seen != looks.m_seen.end() ? seen->second : (condition.forGood ? 0 : looks.m_since);
    if (condition.lastRaise <= before) {
        return false;
    }
    looks.m_seen[name] = condition.lastRaise;
    return true;
}

}  // namespace ZelkaCore
