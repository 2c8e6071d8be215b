#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "apps/zelka/control/control_call.h"
#include "platform/scoped_fd.h"
#include "zelka_core/varlink/varlink_message.h"

// One connection to the control socket: takes calls, one after the other, and answers them. For the
// thread of the socket; nothing waits.
class ControlConnection {
  public:
    using Clock = std::chrono::steady_clock;

    // `wake` as in CallContext; `patience` is how long the other side may take none of its answers.
    ControlConnection(ScopedFd socket, ControlTarget& target, std::function<void()> wake,
                      std::chrono::milliseconds patience)
        : m_socket(std::move(socket)),
          m_target(target),
          m_wake(std::move(wake)),
          m_patience(patience) {}

    // Answers nothing but this, and ends.
    void Refuse(const ZelkaCore::VarlinkReply& reply);

    // Does what there is to do: sends, takes what has come, answers. False when the connection is
    // over: the other side is gone, has broken the protocol, or has worn the patience out.
    [[nodiscard]] bool Step();

    // What it waits for.
    [[nodiscard]] ZelkaCore::AwaitedDescriptor Awaited() const;
    [[nodiscard]] ZelkaCore::Deadline Until() const;
    [[nodiscard]] bool AwaitsEvents() const { return m_call && m_call->AwaitsEvents(); }

  private:
    [[nodiscard]] bool Flush();
    [[nodiscard]] bool Receive();
    [[nodiscard]] bool Reads() const;
    bool AdvanceCall();
    bool TakeMessage();
    void Answer(const ZelkaCore::VarlinkCall& call);
    void Add(const ZelkaCore::VarlinkReply& reply);

    // Constant after construction.
    const ScopedFd m_socket;
    ControlTarget& m_target;
    const std::function<void()> m_wake;
    const std::chrono::milliseconds m_patience;

    ZelkaCore::VarlinkReader m_reader;
    std::string m_output;  // from m_sent on it is to be sent
    std::size_t m_sent = 0;
    ZelkaCore::Deadline m_takeUntil;      // the other side is to take something
    std::unique_ptr<OngoingCall> m_call;  // goes on
    bool m_isStream = false;              // it may have more replies than one
    bool m_isSilent = false;              // the call wants no reply
    bool m_isDeaf = false;                // nothing more comes, or is looked at
};
