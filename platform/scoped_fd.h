#pragma once

#include <utility>

// Owns a file descriptor and closes it. -1 owns nothing.
class ScopedFd {
  public:
    ScopedFd() = default;
    explicit ScopedFd(int fd) : m_fd(fd) {}
    ScopedFd(ScopedFd&& other) noexcept : m_fd(other.Release()) {}
    ScopedFd& operator=(ScopedFd&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    ScopedFd(const ScopedFd&) = delete;
    ScopedFd& operator=(const ScopedFd&) = delete;
    ~ScopedFd() { Reset(); }

    [[nodiscard]] int Get() const { return m_fd; }
    [[nodiscard]] bool IsOpen() const { return m_fd >= 0; }
    [[nodiscard]] int Release() { return std::exchange(m_fd, -1); }
    void Reset(int fd = -1);

  private:
    int m_fd = -1;
};
