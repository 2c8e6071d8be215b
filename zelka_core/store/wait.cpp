#include "zelka_core/store/wait.h"

#include <algorithm>
#include <utility>

#include "platform/poller.h"
#include "zelka_core/store/wait_engine.h"

namespace ZelkaCore {

namespace {

using Clock = CWaitEngine::Clock;

bool HasPassed(const Deadline& deadline) {
    return deadline && Clock::now() >= *deadline;
}

bool IsEarlier(const Deadline& deadline, const Deadline& other) {
    return deadline && (!other || *deadline < *other);
}

}  // namespace

CWait::CWait(CWaitEngine& engine, CConditions::Looks& looks)
    : Waiter(engine.m_listener), m_engine(engine), m_looks(looks) {
}

CWait::~CWait() {
    End();
}

void CWait::Begin(std::vector<Awaited> items, const Deadline& deadline) {
    End();
    m_items = std::move(items);
    m_deadline = deadline;
    const bool isOver = HasPassed(deadline);
    for (std::size_t i = 0; i < m_items.size() && !m_failure; ++i) {
        BeginItem(i, isOver);
    }
    if (!isOver) {
        AddTimer();
    }
}

// Of a wait that is over already only what holds now counts.
void CWait::BeginItem(std::size_t index, bool isOver) {
    Awaited& awaited = m_items[index];
    if (const auto* name = std::get_if<std::string>(&awaited)) {
        AwaitCondition(*name);
    } else if (auto* signal = std::get_if<AwaitedSignal>(&awaited)) {
        auto& waits = signal->signal->m_waits;
        signal->place = waits.insert(waits.end(), this);
    } else if (const auto* event = std::get_if<EventPtr>(&awaited)) {
        (void)m_engine.Watch(*this, DescriptorOf(**event), Poller::kReadable);
    } else if (auto* item = std::get_if<AwaitedDescriptor>(&awaited); item->descriptor >= 0) {
        const auto error = m_engine.Watch(*this, item->descriptor, item->events);
        if (error == std::errc::operation_not_permitted) {
            item->isReady = true;
        } else if (error) {
            m_failure = WaitResult{WaitResult::Kind::kFailed, index, error};
        } else if (isOver) {
            item->isReady = Poller::IsReady(item->descriptor, item->events);
        }
    }
}

// For the earliest time at which something of the wait is over.
void CWait::AddTimer() {
    m_engine.m_timers.Remove(*this);
    Deadline first = m_deadline;
    for (const Awaited& item : m_items) {
        const auto* descriptor = std::get_if<AwaitedDescriptor>(&item);
        if (descriptor != nullptr && IsEarlier(descriptor->deadline, first)) {
            first = descriptor->deadline;
        }
    }
    if (first) {
        m_engine.m_timers.Add(*this, *first);
    }
}

std::optional<WaitResult> CWait::Look() {
    std::optional<WaitResult> result = std::exchange(m_failure, std::nullopt);
    if (!result) {
        if (const auto fired = FirstFired()) {
            result = WaitResult{WaitResult::Kind::kFired, *fired};
        } else if (HasPassed(m_deadline)) {
            result = WaitResult{WaitResult::Kind::kTimeout};
        }
    }
    if (result) {
        End();
    } else {
        AddTimer();
        m_engine.WatchEventsAgain(*this);
    }
    return result;
}

std::optional<std::size_t> CWait::FirstFired() {
    std::size_t condition = 0;
    for (std::size_t i = 0; i < m_items.size(); ++i) {
        bool fired = false;
        if (std::holds_alternative<std::string>(m_items[i])) {
            fired = SeesRaise(condition++, m_looks);
        } else if (const auto* signal = std::get_if<AwaitedSignal>(&m_items[i])) {
            fired = signal->signal == nullptr;
        } else if (const auto* event = std::get_if<EventPtr>(&m_items[i])) {
            fired = TakeSignal(**event);
        } else if (const auto* item = std::get_if<AwaitedDescriptor>(&m_items[i])) {
            fired = item->isReady || HasPassed(item->deadline);
        }
        if (fired) {
            return i;
        }
    }
    return std::nullopt;
}

void CWait::End() {
    m_engine.m_timers.Remove(*this);
    AwaitNoCondition();
    for (const Awaited& item : m_items) {
        if (const auto* signal = std::get_if<AwaitedSignal>(&item)) {
            if (signal->signal != nullptr) {
                signal->signal->m_waits.erase(signal->place);
            }
        } else if (const auto* event = std::get_if<EventPtr>(&item)) {
            m_engine.Unwatch(*this, DescriptorOf(**event));
        } else if (const auto* descriptor = std::get_if<AwaitedDescriptor>(&item)) {
            m_engine.Unwatch(*this, descriptor->descriptor);
        }
    }
    m_items.clear();
    m_deadline.reset();
    m_failure.reset();
}

void CSignal::Fire(std::size_t count) {
    while (count > 0 && !m_waits.empty()) {
        CWait* const wait = m_waits.front();
        for (Awaited& item : wait->m_items) {
            auto* signal = std::get_if<AwaitedSignal>(&item);
            if (signal != nullptr && signal->signal == this && signal->place == m_waits.begin()) {
                signal->signal = nullptr;
            }
        }
        m_waits.pop_front();
        count -= wait->IsSureToLook() ? 1U : 0U;
        wait->OnWoken();
    }
}

}  // namespace ZelkaCore
