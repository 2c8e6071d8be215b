#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <optional>
#include <string>

#include "platform/scoped_fd.h"
#include "tests/support/scratch_folder.h"

// The service manager's end of the line, in a folder of its own.
class NotifySocket {
  public:
    NotifySocket() {
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        (void)Path().copy(address.sun_path, sizeof address.sun_path - 1);
        // NOLINTNEXTLINE(*-reinterpret-cast): as the interface of sockets wants it
        EXPECT_EQ(bind(m_fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        const timeval patience{.tv_sec = 60, .tv_usec = 0};
        (void)setsockopt(m_fd.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }

    [[nodiscard]] std::string Path() const { return (m_folder.Path() / "notify").string(); }

    // The next message; nothing if none comes for long or, with MSG_DONTWAIT, if there is none.
    [[nodiscard]] std::optional<std::string> Receive(int flags = 0) const {
        std::array<char, 4096> text{};
        const ssize_t size = recv(m_fd.Get(), text.data(), text.size(), flags);
        if (size < 0) {
            return std::nullopt;
        }
        return std::string(text.data(), static_cast<std::size_t>(size));
    }

  private:
    const ScratchFolder m_folder;
    const ScopedFd m_fd{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};
