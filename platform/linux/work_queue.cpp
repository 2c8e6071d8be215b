#include "platform/linux/work_queue.h"

#include <system_error>
#include <utility>

namespace {

constexpr std::size_t kMostWaiting = 8;
constexpr std::size_t kNotWorthAThread = 1;

}  // namespace

WorkQueue::~WorkQueue() {
    if (!m_hasThread) {
        return;
    }
    {
        const std::lock_guard lock(m_mutex);
        m_isOver = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void WorkQueue::Begin() {
    if (m_hasThread) {
        return;
    }
    try {
        m_thread = std::thread([this] { Work(); });
        m_hasThread = true;
    } catch (const std::system_error&) {  // the owner does it all
    }
}

void WorkQueue::Push(Job job) {
    {
        const std::lock_guard lock(m_mutex);
        m_jobs.push_back(std::move(job));
    }
    m_changed.notify_all();
}

void WorkQueue::Add(Job job) {
    if (++m_added > kNotWorthAThread) {
        Begin();
    }
    bool isFull = !m_hasThread;
    if (!isFull) {
        const std::lock_guard lock(m_mutex);
        isFull = m_jobs.size() >= kMostWaiting;
    }
    if (isFull) {
        job();
    } else {
        Push(std::move(job));
    }
}

void WorkQueue::AddInOrder(Job job) {
    Begin();
    if (!m_hasThread) {
        job();
        return;
    }
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_jobs.size() < kMostWaiting; });
    }
    Push(std::move(job));
}

void WorkQueue::Finish() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_jobs.empty(); });
}

void WorkQueue::Work() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_isOver || !m_jobs.empty(); });
        if (m_jobs.empty()) {
            return;
        }
        const Job& job = m_jobs.front();
        lock.unlock();
        job();
        lock.lock();
        m_jobs.pop_front();
        m_changed.notify_all();
    }
}
