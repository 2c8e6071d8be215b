#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/private_file.h"
#include "platform/scoped_fd.h"

// Stream sockets between processes of one machine, in the file system. None blocks and none is
// inherited; a connection that the other side has left is an error and no signal. The length of a
// path does not matter.

// A socket that waits for connections, and its file (mode 0600), which goes with it. For one
// thread.
class LocalListener {
  public:
    LocalListener() = default;
    ~LocalListener() { Close(); }
    LocalListener(const LocalListener&) = delete;
    LocalListener& operator=(const LocalListener&) = delete;

    // Takes the place of a socket that nobody listens at any more. EADDRINUSE if somebody does,
    // EEXIST if something else is there, which stays.
    [[nodiscard]] std::error_code Open(const std::string& path);

    // Ready to be read when somebody connects.
    [[nodiscard]] int Get() const { return m_socket.Get(); }

    // A connection that waits; none (no error) if none does.
    [[nodiscard]] std::error_code Accept(ScopedFd& connection) const;

    // Removes the file, unless another one is in its place by now.
    void Close();

  private:
    ScopedFd m_socket;
    ScopedFd m_folder;
    std::string m_name;
    std::optional<FileIdentity> m_identity;
};

// Connects to who listens there. ENOENT: there is no such socket; ECONNREFUSED: nobody listens.
[[nodiscard]] std::error_code ConnectLocal(const std::string& path, ScopedFd& connection);

// Whether the process at the other side, as it was when it connected, runs as this process's user
// or as the system's first.
[[nodiscard]] bool IsPeerTrusted(int connection);

// Sends what fits, and tells how much that was: 0 if nothing does at the moment.
[[nodiscard]] std::error_code SendSome(int connection, std::string_view bytes, std::size_t& sent);

// Appends what has come, of at most `limit` bytes. `isOver`: the other side sends nothing more.
[[nodiscard]] std::error_code ReceiveSome(int connection, std::size_t limit, std::string& bytes,
                                          bool& isOver);
