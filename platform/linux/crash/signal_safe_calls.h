#pragma once

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>

// System calls for code that runs in a signal handler or in the process that writes a dump. They go
// to the kernel directly: the C library's functions may act on a pending cancellation of the
// thread, and a sanitizer's would refuse to read memory that the program itself may not read.
// All answer -1 with errno on failure. Addresses are numbers, as they are not ours to dereference.

namespace crash {

inline int Open(const char* path, int flags, mode_t mode = 0) {
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags | O_CLOEXEC, mode));
}

inline void Close(int fd) {
    (void)syscall(SYS_close, fd);
}

inline long Read(int fd, void* buffer, std::size_t size) {
    return syscall(SYS_read, fd, buffer, size);
}

inline long ReadAt(int fd, void* buffer, std::size_t size, std::uint64_t offset) {
    return syscall(SYS_pread64, fd, buffer, size, offset);
}

inline long WriteAt(int fd, std::uint64_t address, std::size_t size, std::uint64_t offset) {
    return syscall(SYS_pwrite64, fd, address, size, offset);
}

inline void Unlink(const char* path) {
    (void)syscall(SYS_unlinkat, AT_FDCWD, path, 0);
}

// Waits until `word` is no longer 0, or the time is over: then false.
inline bool AwaitNonZero(std::atomic<std::uint32_t>& word, std::time_t seconds) {
    const timespec limit{.tv_sec = seconds, .tv_nsec = 0};
    while (word.load() == 0) {
        if (syscall(SYS_futex, &word, FUTEX_WAIT, 0, &limit, nullptr, 0) != 0 &&
            errno == ETIMEDOUT) {
            return false;
        }
    }
    return true;
}

inline void SetAndWake(std::atomic<std::uint32_t>& word) {
    word.store(1);
    (void)syscall(SYS_futex, &word, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

}  // namespace crash
