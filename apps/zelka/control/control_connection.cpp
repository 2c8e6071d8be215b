#include "apps/zelka/control/control_connection.h"

#include <algorithm>
#include <utility>

#include "platform/local_socket.h"
#include "platform/poller.h"

using ZelkaCore::VarlinkCall;
using ZelkaCore::VarlinkReply;

namespace {

constexpr std::size_t kReadSize = 65'536;

// As long as so many bytes are not sent, no more answers are made.
constexpr std::size_t kEnoughOutput = 65'536;

}  // namespace

void ControlConnection::Refuse(const VarlinkReply& reply) {
    m_isDeaf = true;
    Add(reply);
}

bool ControlConnection::Step() {
    if (!Flush() || !Receive()) {
        return false;
    }
    // Each of them may make room for the next.
    while (m_output.size() < kEnoughOutput && (AdvanceCall() || TakeMessage())) {
        if (!Flush()) {
            return false;
        }
    }
    if (m_takeUntil && Clock::now() >= *m_takeUntil) {
        return false;
    }
    return !m_isDeaf || m_call || !m_output.empty();
}

bool ControlConnection::Flush() {
    while (!m_output.empty()) {
        std::size_t sent = 0;
        if (SendSome(m_socket.Get(), std::string_view(m_output).substr(m_sent), sent)) {
            return false;
        }
        if (sent == 0) {
            m_takeUntil = m_takeUntil ? m_takeUntil : Clock::now() + m_patience;
            return true;
        }
        m_takeUntil.reset();
        m_sent += sent;
        if (m_sent == m_output.size()) {
            m_output.clear();
            m_sent = 0;
        }
    }
    return true;
}

// A stream is over when the other side has nothing more to say, as it is gone then; a call that has
// one answer gets it.
bool ControlConnection::Receive() {
    if (!Reads()) {
        return true;
    }
    std::string bytes;
    bool isOver = false;
    if (ReceiveSome(m_socket.Get(), kReadSize, bytes, isOver)) {
        return false;
    }
    m_reader.Add(bytes);
    m_isDeaf = isOver;
    return !(isOver && m_isStream);
}

bool ControlConnection::AdvanceCall() {
    if (!m_call) {
        return false;
    }
    std::vector<VarlinkReply> replies;
    try {
        m_call->Advance(replies);
    } catch (const std::exception& error) {
        replies.push_back(ControlError("Failed", "reason", error.what()).Reply());
        m_call.reset();
    }
    for (const VarlinkReply& reply : replies) {
        Add(reply);
    }
    if (m_call && m_call->IsOver()) {
        m_call.reset();
    }
    m_isStream = m_isStream && m_call;
    return !replies.empty();
}

// A message that is no call ends the connection: nobody knows what comes behind it.
bool ControlConnection::TakeMessage() {
    if (m_call) {
        return false;
    }
    const auto message = m_reader.Next();
    VarlinkCall call;
    std::string fault;
    if (message && ReadVarlinkCall(*message, call, fault)) {
        Answer(call);
        return true;
    }
    if (!message && m_reader.IsTooLong()) {
        fault = "it is longer than " + std::to_string(ZelkaCore::VarlinkReader::kLimit) + " bytes";
    }
    if (!fault.empty()) {
        m_isSilent = false;
        m_reader = {};
        Refuse(ControlError("BadMessage", "reason", fault).Reply());
    }
    return false;
}

void ControlConnection::Answer(const VarlinkCall& call) {
    m_isSilent = call.wantsNoReply;
    auto outcome = CarryOut(call, m_target, m_wake);
    if (const auto* reply = std::get_if<VarlinkReply>(&outcome)) {
        Add(*reply);
    } else {
        m_call = std::move(std::get<std::unique_ptr<OngoingCall>>(outcome));
        m_isStream = call.wantsMore;
    }
}

void ControlConnection::Add(const VarlinkReply& reply) {
    if (!m_isSilent) {
        m_output += WriteVarlink(reply);
    }
}

// Nothing is read that cannot be looked at soon.
bool ControlConnection::Reads() const {
    return !m_isDeaf && m_output.size() < kEnoughOutput && !m_reader.IsTooLong();
}

ZelkaCore::AwaitedDescriptor ControlConnection::Awaited() const {
    const unsigned events = (Reads() ? unsigned{Poller::kReadable} : 0U) |
                            (m_output.empty() ? 0U : unsigned{Poller::kWritable});
    constexpr int kNone = -1;  // the end of the other side would be told again and again
    return {events != 0 ? m_socket.Get() : kNone, events, {}};
}

ZelkaCore::Deadline ControlConnection::Until() const {
    const auto& call = m_call ? m_call->Until() : std::nullopt;
    return m_takeUntil && call ? std::min(*m_takeUntil, *call) : m_takeUntil ? m_takeUntil : call;
}
