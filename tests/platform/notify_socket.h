#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <optional>
#include <stdexcept>
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
        if (bind(Fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error("no socket at " + Path());
        }
    }

    [[nodiscard]] std::string Path() const { return (m_folder.Path() / "notify").string(); }
    [[nodiscard]] int Fd() const { return m_socket.Get(); }

    // The next message that has arrived; nothing if there is none.
    [[nodiscard]] std::optional<std::string> Received() const {
        std::array<char, 4096> text{};
        const ssize_t size = recv(Fd(), text.data(), text.size(), 0);
        if (size < 0) {
            return std::nullopt;
        }
        return std::string(text.data(), static_cast<std::size_t>(size));
    }

  private:
    const ScratchFolder m_folder;
    const ScopedFd m_socket{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
};
