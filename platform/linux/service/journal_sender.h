#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "platform/journal.h"
#include "platform/scoped_fd.h"

// Gives messages to a journal in its native protocol, see platform/journal.h. The library's own
// call waits for as long as the journal does not read. Any thread.
class JournalSender {
  public:
    // The path of the journal's socket, which need not be there yet.
    explicit JournalSender(std::string path);
    // Messages that still wait are lost.
    ~JournalSender();
    JournalSender(const JournalSender&) = delete;
    JournalSender& operator=(const JournalSender&) = delete;

    void SetFields(JournalFields fields);
    void Send(const JournalMessage& message);
    void Settle(std::chrono::milliseconds limit);

  private:
    struct Waiting {
        std::string datagram;
        std::size_t count;  // of messages that are missing if it does not arrive
    };
    enum class Taken { kYes, kLater, kNever };

    // All of them with the mutex held.
    [[nodiscard]] std::string DatagramOf(const JournalMessage& message) const;
    bool Connect();
    Taken TrySend(const std::string& datagram);
    void Deliver(Waiting message);
    void TellMissing();
    bool DeliverWaiting();
    void StartWork();

    void Work();

    const std::string m_path;

    std::mutex m_mutex;  // guards all below; nothing blocks under it
    std::condition_variable m_settled;
    JournalFields m_fields;
    ScopedFd m_socket;  // another one only in TrySend
    std::deque<Waiting> m_waiting;
    std::size_t m_waitingBytes = 0;
    std::size_t m_missing = 0;  // messages since the last that arrived or waits
    bool m_isOver = false;
    bool m_isWorking = false;  // the thread is there as long as messages wait
    std::thread m_thread;
};
