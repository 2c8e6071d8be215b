#include "platform/shell.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include "platform/error.h"
#include "platform/linux/spawn_settings.h"

namespace {

constexpr const char* kShell = "/bin/sh";

std::error_code StartShell(pid_t& pid, const std::string& command, int input, int output) {
    SpawnSettings settings;
    const auto error = settings.UseDescriptors(input, output, STDERR_FILENO);
    std::vector<std::string> arguments{kShell, "-c", command};
    return error ? error : settings.Start(pid, kShell, PointersTo(arguments), environ);
}

// Leaves SIGINT and SIGQUIT to the command that a terminal sends them to as well.
class KeyboardSignalsIgnored {
  public:
    KeyboardSignalsIgnored() {
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        (void)sigaction(SIGINT, &ignore, &m_interrupt);
        (void)sigaction(SIGQUIT, &ignore, &m_quit);
    }
    ~KeyboardSignalsIgnored() {
        (void)sigaction(SIGINT, &m_interrupt, nullptr);
        (void)sigaction(SIGQUIT, &m_quit, nullptr);
    }
    KeyboardSignalsIgnored(const KeyboardSignalsIgnored&) = delete;
    KeyboardSignalsIgnored& operator=(const KeyboardSignalsIgnored&) = delete;

  private:
    struct sigaction m_interrupt = {};
    struct sigaction m_quit = {};
};

}  // namespace

bool HasShell() {
    return access(kShell, X_OK) == 0;
}

std::error_code RunShell(const std::string& command, int& status) {
    const KeyboardSignalsIgnored ignored;
    pid_t pid = 0;
    if (const auto error = StartShell(pid, command, STDIN_FILENO, STDOUT_FILENO)) {
        return error;
    }
    return CollectShell(static_cast<unsigned long>(pid), status);
}

std::error_code OpenShell(const std::string& command, ShellPipe direction, FileStream& stream,
                          unsigned long& pid) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return LastSystemError();
    }
    ScopedFd reading(ends[0]);
    ScopedFd writing(ends[1]);
    const bool isRead = direction == ShellPipe::kRead;
    ScopedFd& ours = isRead ? reading : writing;
    FileStream opened(fdopen(ours.Get(), isRead ? "r" : "w"));
    if (!opened) {
        return LastSystemError();
    }
    (void)ours.Release();  // now the stream's own
    pid_t started = 0;
    if (const auto error = StartShell(started, command, isRead ? STDIN_FILENO : reading.Get(),
                                      isRead ? writing.Get() : STDOUT_FILENO)) {
        return error;
    }
    stream = std::move(opened);
    pid = static_cast<unsigned long>(started);
    return {};
}

std::error_code CollectShell(unsigned long pid, int& status) {
    int ended = 0;
    while (waitpid(static_cast<pid_t>(pid), &ended, 0) < 0) {
        if (errno != EINTR) {
            return LastSystemError();
        }
    }
    status = ended;
    return {};
}
