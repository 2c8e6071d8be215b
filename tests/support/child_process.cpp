#include "tests/support/child_process.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

ChildProcess::ChildProcess(const std::function<bool()>& work) {
    std::array<int, 2> ends{-1, -1};
    (void)socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data());
    m_lines.Reset(ends[0]);
    const ScopedFd own(ends[1]);
    m_pid = own.IsOpen() ? fork() : -1;
    if (m_pid < 0) {
        throw std::system_error(errno, std::generic_category(), "no child process");
    }
    if (m_pid == 0) {
        m_lines.Reset();
        (void)dup2(own.Get(), STDIN_FILENO);
        (void)dup2(own.Get(), STDOUT_FILENO);
        _exit(work() ? EXIT_SUCCESS : EXIT_FAILURE);
    }
}

ChildProcess::~ChildProcess() {
    // 0 while it runs and is a child of ours. If it was collected, its number may be a stranger's.
    if (waitpid(m_pid, nullptr, WNOHANG) == 0) {
        (void)kill(m_pid, SIGKILL);
        (void)Succeeds();
    }
}

std::string ChildProcess::ReadLine() const {
    std::string line;
    char c = 0;
    while (read(m_lines.Get(), &c, 1) == 1 && c != '\n') {
        line += c;
    }
    return line;
}

bool ChildProcess::Succeeds() const {
    int status = -1;
    return waitpid(m_pid, &status, 0) == m_pid && status == 0;
}
