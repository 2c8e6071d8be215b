#include "platform/ip_helper.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

#include "platform/error.h"

namespace {

// A socket that becomes readable with the first change; only the two groups' messages reach it.
std::error_code OpenAddressSocket(ScopedFd& opened) {
    ScopedFd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
    if (!fd.IsOpen() ||
        bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        return LastSystemError();
    }
    opened = std::move(fd);
    return {};
}

}  // namespace

std::error_code NotifyAddrChange(OVERLAPPED& overlapped) {
    return OpenAddressSocket(overlapped.Internal);
}

std::error_code GetOverlappedResult(OVERLAPPED& overlapped, bool& hasFired) {
    if (!overlapped.IsArmed()) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    // That there is a message says it all, so the rest of a longer one may go. A socket that was
    // overrun tells so before anything else it holds.
    std::array<char, sizeof(nlmsghdr)> message{};
    if (recv(overlapped.Internal.Get(), message.data(), message.size(), 0) < 0 &&
        errno != ENOBUFS) {
        if (errno != EAGAIN && errno != EINTR) {
            return LastSystemError();
        }
        hasFired = false;
        return {};
    }
    // What else the socket holds belongs to this change: the next notification begins with a new
    // one.
    overlapped.Internal.Reset();
    hasFired = true;
    return {};
}

void CancelIPChangeNotify(OVERLAPPED& overlapped) {
    overlapped.Internal.Reset();
}
