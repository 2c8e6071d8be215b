#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <system_error>

#include "platform/poller.h"
#include "platform/scoped_fd.h"
#include "zelka_core/varlink/varlink_message.h"

namespace ZelkaCore {

// One connection to a Varlink service at a local socket. For one thread; it waits where it says so.
class VarlinkClient {
  public:
    // In bytes. A service may tell much at once.
    static constexpr std::size_t kLargestReply = std::size_t{64} << 20;

    using Deadline = std::optional<Poller::Clock::time_point>;

    // ENOENT, ECONNREFUSED: no service is there.
    [[nodiscard]] std::error_code Connect(const std::string& path);

    // Sends a call, and waits until it is out. A service that does not take it says why in what
    // Receive gives.
    [[nodiscard]] std::error_code Send(const VarlinkCall& call);

    // Waits for the next reply. ETIMEDOUT at the deadline, ECONNRESET when the service has gone,
    // EPROTO for what is no reply, EMSGSIZE for one that is too long.
    [[nodiscard]] std::error_code Receive(VarlinkReply& reply, const Deadline& deadline = {});

    // Ready to be read when a reply, or a part of one, has come.
    [[nodiscard]] int Descriptor() const { return m_connection.Get(); }

  private:
    [[nodiscard]] std::error_code Await(unsigned events, const Deadline& deadline);

    ScopedFd m_connection;
    Poller m_poller;
    VarlinkReader m_reader{kLargestReply};
};

}  // namespace ZelkaCore
