#include "platform/linux/service/journal_sender.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <system_error>
#include <utility>

namespace {

constexpr std::size_t kMostWaiting = std::size_t{8} * 1024 * 1024;  // bytes

std::string UpperCase(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(), [](char c) {
        return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    });
    return name;
}

// A value of several lines has its size, of 64 bits with the lowest byte first, in front of it.
void AddField(const std::string& name, const std::string& value, std::string& datagram) {
    datagram += name;
    if (value.find('\n') == std::string::npos) {
        datagram += '=';
    } else {
        datagram += '\n';
        for (unsigned shift = 0; shift < 64; shift += 8) {
            datagram += static_cast<char>(std::uint64_t{value.size()} >> shift);
        }
    }
    datagram += value;
    datagram += '\n';
}

// What only the host says.
JournalFields OwnFields(const JournalMessage& message, const JournalFields& common) {
    JournalFields fields;
    for (const auto& [name, value] : common) {
        fields[UpperCase(name)] = value;
    }
    fields["MESSAGE"] = message.text;
    fields["PRIORITY"] = std::to_string(static_cast<int>(message.priority));
    if (!message.id.empty()) {
        fields["MESSAGE_ID"] = message.id;
    }
    return fields;
}

// A thread on which no signal arrives that is meant for others.
template <typename Body>
std::thread QuietThread(Body body) {
    sigset_t all;
    sigset_t before;
    (void)sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread;
    try {
        thread = std::thread(body);
    } catch (const std::system_error&) {
        // The next message tries again.
    }
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

}  // namespace

JournalSender::JournalSender(std::string path) : m_path(std::move(path)) {
}

JournalSender::~JournalSender() {
    {
        const std::lock_guard lock(m_mutex);
        m_isOver = true;
        if (m_socket.IsOpen()) {
            (void)shutdown(m_socket.Get(), SHUT_RDWR);  // ends the wait for room
        }
    }
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void JournalSender::SetFields(JournalFields fields) {
    const std::lock_guard lock(m_mutex);
    m_fields = std::move(fields);
}

void JournalSender::Send(const JournalMessage& message) {
    const std::lock_guard lock(m_mutex);
    if (m_missing > 0) {
        if (m_waitingBytes > kMostWaiting / 2) {
            ++m_missing;  // few long gaps are better than many short ones
            return;
        }
        TellMissing();
    }
    Deliver({DatagramOf(message), 1});
}

void JournalSender::Settle(std::chrono::milliseconds limit) {
    std::unique_lock lock(m_mutex);
    (void)m_settled.wait_for(lock, limit, [this] { return m_waiting.empty(); });
}

std::string JournalSender::DatagramOf(const JournalMessage& message) const {
    JournalFields fields = OwnFields(message, m_fields);
    for (const auto& [name, value] : message.fields) {
        (void)fields.try_emplace(UpperCase(name), value);
    }
    // By this one messages are shown, as those of the library.
    (void)fields.try_emplace("SYSLOG_IDENTIFIER", program_invocation_short_name);
    std::string datagram;
    for (const auto& [name, value] : fields) {
        AddField(name, value, datagram);
    }
    return datagram;
}

bool JournalSender::Connect() {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    ScopedFd made(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!made.IsOpen() || m_path.size() >= sizeof address.sun_path) {
        return false;
    }
    (void)m_path.copy(address.sun_path, sizeof address.sun_path - 1);
    // NOLINTNEXTLINE(*-reinterpret-cast): as the interface of sockets wants it
    const auto* const general = reinterpret_cast<const sockaddr*>(&address);
    if (connect(made.Get(), general, sizeof address) != 0) {
        return false;
    }
    m_socket = std::move(made);
    return true;
}

JournalSender::Taken JournalSender::TrySend(const std::string& datagram) {
    // Twice, as the journal's socket may be another one since the last message.
    for (int round = 0; round < 2 && (m_socket.IsOpen() || Connect()); ++round) {
        if (send(m_socket.Get(), datagram.data(), datagram.size(), MSG_NOSIGNAL) >= 0) {
            return Taken::kYes;
        }
        if (errno == EAGAIN) {
            return Taken::kLater;
        }
        if (errno == EMSGSIZE) {
            return Taken::kNever;
        }
        m_socket.Reset();
    }
    return Taken::kNever;
}

void JournalSender::Deliver(Waiting message) {
    const Taken taken = m_waiting.empty() ? TrySend(message.datagram) : Taken::kLater;
    if (taken == Taken::kYes) {
        return;
    }
    const std::size_t size = message.datagram.size();
    if (taken == Taken::kNever || m_waitingBytes + size > kMostWaiting) {
        m_missing += message.count;
        return;
    }
    m_waitingBytes += size;
    m_waiting.push_back(std::move(message));
    StartWork();
}

void JournalSender::TellMissing() {
    const std::size_t count = std::exchange(m_missing, 0);
    const std::string text =
        "Messages that are missing here, as the journal could not take them: " +
        std::to_string(count);
    Deliver({DatagramOf({JournalPriority::kWarning, kJournalGapId, text, JournalFields()}), count});
}

// Whether some are left, as the journal has no room for them now.
bool JournalSender::DeliverWaiting() {
    while (!m_waiting.empty()) {
        const Taken taken = TrySend(m_waiting.front().datagram);
        if (taken == Taken::kLater) {
            return true;
        }
        if (taken == Taken::kNever) {
            m_missing += m_waiting.front().count;
        }
        m_waitingBytes -= m_waiting.front().datagram.size();
        m_waiting.pop_front();
        if (taken == Taken::kYes && m_waiting.empty() && m_missing > 0) {
            TellMissing();
        }
    }
    return false;
}

void JournalSender::StartWork() {
    if (m_isWorking) {
        return;
    }
    if (m_thread.joinable()) {
        m_thread.join();  // it has let go of the mutex for the last time
    }
    m_thread = QuietThread([this] { Work(); });
    m_isWorking = m_thread.joinable();
}

void JournalSender::Work() {
    std::unique_lock lock(m_mutex);
    while (!m_isOver && DeliverWaiting()) {
        pollfd room{.fd = m_socket.Get(), .events = POLLOUT, .revents = 0};
        lock.unlock();
        (void)poll(&room, 1, -1);
        lock.lock();
    }
    m_isWorking = false;
    m_settled.notify_all();
}
