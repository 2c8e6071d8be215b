#include "platform/local_socket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/error.h"

namespace {

constexpr int kBacklog = 64;
constexpr mode_t kMode = 0600;

std::error_code ErrorOf(int number) {
    return {number, std::system_category()};
}

// The folder of the path, opened, and the name in it.
std::error_code OpenFolder(const std::string& path, ScopedFd& folder, std::string& name) {
    const auto slash = path.rfind('/');
    const std::string parent = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    name = path.substr(slash == std::string::npos ? 0 : slash + 1);
    folder.Reset(open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    return folder.IsOpen() ? std::error_code() : LastSystemError();
}

// An address that leads through the folder's descriptor: short however long the path is, and not to
// be redirected.
std::error_code AddressOf(const ScopedFd& folder, const std::string& name, sockaddr_un& address) {
    const std::string path = "/proc/self/fd/" + std::to_string(folder.Get()) + "/" + name;
    if (path.size() >= sizeof address.sun_path) {
        return ErrorOf(ENAMETOOLONG);
    }
    address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return {};
}

std::error_code OpenSocket(ScopedFd& socketFd) {
    socketFd.Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    return socketFd.IsOpen() ? std::error_code() : LastSystemError();
}

const sockaddr* AsAddress(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

std::error_code ConnectIn(const ScopedFd& folder, const std::string& name, ScopedFd& connection) {
    sockaddr_un address;
    if (const auto error = AddressOf(folder, name, address)) {
        return error;
    }
    ScopedFd made;
    if (const auto error = OpenSocket(made)) {
        return error;
    }
    if (connect(made.Get(), AsAddress(address), sizeof address) != 0) {
        return LastSystemError();
    }
    connection = std::move(made);
    return {};
}

std::optional<FileIdentity> IdentityIn(const ScopedFd& folder, const std::string& name) {
    struct stat info = {};
    if (fstatat(folder.Get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return std::nullopt;
    }
    return FileIdentity{info.st_dev, info.st_ino};
}

// Makes the name free, if it is that of a socket at which nobody listens.
std::error_code RemoveStale(const ScopedFd& folder, const std::string& name) {
    struct stat info = {};
    if (fstatat(folder.Get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT ? std::error_code() : LastSystemError();
    }
    if (!S_ISSOCK(info.st_mode)) {
        return ErrorOf(EEXIST);
    }
    ScopedFd listener;
    const auto error = ConnectIn(folder, name, listener);
    if (error != std::errc::connection_refused) {
        return !error || error == std::errc::resource_unavailable_try_again ? ErrorOf(EADDRINUSE)
                                                                            : error;
    }
    return unlinkat(folder.Get(), name.c_str(), 0) == 0 || errno == ENOENT ? std::error_code()
                                                                           : LastSystemError();
}

// A call that was interrupted is tried again; one that would block is none that failed.
bool WouldBlock() {
    return errno == EAGAIN || errno == EWOULDBLOCK;
}

}  // namespace

std::error_code LocalListener::Open(const std::string& path) {
    ScopedFd folder;
    std::string name;
    if (const auto error = OpenFolder(path, folder, name)) {
        return error;
    }
    if (const auto error = RemoveStale(folder, name)) {
        return error;
    }
    ScopedFd made;
    if (const auto error = OpenSocket(made)) {
        return error;
    }
    sockaddr_un address;
    if (const auto error = AddressOf(folder, name, address)) {
        return error;
    }
    // The file takes its mode from the socket, so that it has no other one at any moment.
    if (fchmod(made.Get(), kMode) != 0 ||
        bind(made.Get(), AsAddress(address), sizeof address) != 0) {
        return LastSystemError();
    }
    if (listen(made.Get(), kBacklog) != 0) {
        const auto error = LastSystemError();
        (void)unlinkat(folder.Get(), name.c_str(), 0);
        return error;
    }
    m_identity = IdentityIn(folder, name);
    m_socket = std::move(made);
    m_folder = std::move(folder);
    m_name = std::move(name);
    return {};
}

std::error_code LocalListener::Accept(ScopedFd& connection) const {
    const int made = accept4(m_socket.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (made >= 0) {
        connection.Reset(made);
        return {};
    }
    return WouldBlock() || errno == EINTR || errno == ECONNABORTED ? std::error_code()
                                                                   : LastSystemError();
}

void LocalListener::Close() {
    if (m_socket.IsOpen() && m_identity && IdentityIn(m_folder, m_name) == m_identity) {
        (void)unlinkat(m_folder.Get(), m_name.c_str(), 0);
    }
    m_identity.reset();
    m_socket.Reset();
    m_folder.Reset();
}

std::error_code ConnectLocal(const std::string& path, ScopedFd& connection) {
    ScopedFd folder;
    std::string name;
    if (const auto error = OpenFolder(path, folder, name)) {
        return error;
    }
    return ConnectIn(folder, name, connection);
}

bool IsPeerTrusted(int connection) {
    ucred peer = {};
    socklen_t size = sizeof peer;
    return getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           (peer.uid == 0 || peer.uid == geteuid());
}

std::error_code SendSome(int connection, std::string_view bytes, std::size_t& sent) {
    for (;;) {
        const ssize_t count = send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count >= 0 || WouldBlock()) {
            sent = count >= 0 ? static_cast<std::size_t>(count) : 0;
            return {};
        }
        if (errno != EINTR) {
            return LastSystemError();
        }
    }
}

std::error_code ReceiveSome(int connection, std::size_t limit, std::string& bytes, bool& isOver) {
    const std::size_t before = bytes.size();
    bytes.resize(before + limit);
    ssize_t count = 0;
    do {
        count = recv(connection, bytes.data() + before, limit, 0);
    } while (count < 0 && errno == EINTR);
    bytes.resize(before + (count > 0 ? static_cast<std::size_t>(count) : 0));
    if (count < 0 && !WouldBlock()) {
        return LastSystemError();
    }
    isOver = count == 0;
    return {};
}
