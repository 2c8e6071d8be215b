#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

// Work done by a second thread, in the order in which it was given, while its owner goes on. Where
// no thread can be had, the owner does it. For one owner's thread.
class WorkQueue {
  public:
    // Throws nothing, and does not touch the queue.
    using Job = std::function<void()>;

    WorkQueue() = default;
    // Does what is left to do.
    ~WorkQueue();
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;

    // A job that may be done in any order: by the owner, here, when the other thread has enough.
    void Add(Job job);
    // A job that is done when all are that were given before; waits when there are many.
    void AddInOrder(Job job);
    // Returns when all is done.
    void Finish();

  private:
    void Begin();
    void Push(Job job);
    void Work();

    std::thread m_thread;
    bool m_hasThread = false;
    std::size_t m_added = 0;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Job> m_jobs;  // guarded by the mutex, the first one while it is being done
    bool m_isOver = false;   // guarded by the mutex
};
