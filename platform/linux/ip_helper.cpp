#include "platform/ip_helper.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

namespace {

DWORD Fail(int code) {
    SetLastError(static_cast<DWORD>(code));
    return static_cast<DWORD>(code);
}

// The record is where a notification is kept, so its place is the handle.
HANDLE HandleOf(const OVERLAPPED* overlapped) {
    return reinterpret_cast<HANDLE>(overlapped);
}

// A socket that becomes readable with the first change; only the two groups' messages reach it.
ScopedFd OpenAddressSocket() {
    ScopedFd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
    if (fd.IsOpen() &&
        bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        const int code = errno;
        fd.Reset();
        errno = code;
    }
    return fd;
}

}  // namespace

HANDLE WSACreateEvent() {
    return CreateEventW(nullptr, true, false, nullptr);
}

bool WSACloseEvent(HANDLE event) {
    return CloseHandle(event);
}

DWORD WSAGetLastError() {
    return GetLastError();
}

DWORD NotifyAddrChange(HANDLE* handle, OVERLAPPED* overlapped) {
    ScopedFd fd = OpenAddressSocket();
    if (!fd.IsOpen()) {
        return Fail(errno);
    }
    overlapped->Internal = std::move(fd);
    if (overlapped->hEvent != 0) {
        (void)ResetEvent(overlapped->hEvent);
    }
    *handle = HandleOf(overlapped);
    SetLastError(ERROR_IO_PENDING);
    return ERROR_IO_PENDING;
}

bool GetOverlappedResult(HANDLE handle, OVERLAPPED* overlapped, DWORD* bytes, bool wait) {
    if (wait || handle != HandleOf(overlapped) || !overlapped->Internal.IsOpen()) {
        (void)Fail(EINVAL);
        return false;
    }
    // That there is a message says it all, so the rest of a longer one may go. A socket that was
    // overrun tells so before anything else it holds.
    std::array<char, sizeof(nlmsghdr)> message{};
    if (recv(overlapped->Internal.Get(), message.data(), message.size(), 0) < 0 &&
        errno != ENOBUFS) {
        const bool waiting = errno == EAGAIN || errno == EINTR;
        (void)Fail(waiting ? static_cast<int>(ERROR_IO_INCOMPLETE) : errno);
        return false;
    }
    // What else the socket holds belongs to this change: the next notification begins with a new
    // one.
    overlapped->Internal.Reset();
    if (overlapped->hEvent != 0) {
        (void)SetEvent(overlapped->hEvent);
    }
    *bytes = 0;
    return true;
}

bool CancelIPChangeNotify(OVERLAPPED* overlapped) {
    if (!overlapped->Internal.IsOpen()) {
        (void)Fail(EINVAL);
        return false;
    }
    overlapped->Internal.Reset();
    return true;
}
