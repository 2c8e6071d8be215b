#include "platform/process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <limits>
#include <string_view>
#include <utility>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/linux/pidfd.h"
#include "platform/scoped_fd.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kArgumentsLimit = 65'536;
constexpr std::chrono::seconds kPatienceAfterKill{10};

// What the system knows of one process. The folder stays bound to that process: when it has ended,
// reading fails, even if its id belongs to another process by then.
class ProcessFolder {
  public:
    explicit ProcessFolder(unsigned long pid)
        : m_folder(
              open(("/proc/" + std::to_string(pid)).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

    // Empty if there is none or it may not be seen.
    [[nodiscard]] std::string Executable() const {
        std::array<char, PATH_MAX> buffer{};
        const ssize_t length = readlinkat(m_folder.Get(), "exe", buffer.data(), buffer.size());
        if (length <= 0) {
            return {};
        }
        std::string path(buffer.data(), static_cast<std::size_t>(length));
        constexpr std::string_view kDeleted = " (deleted)";
        if (path.ends_with(kDeleted) && !IsExecutable(path)) {
            path.resize(path.size() - kDeleted.size());
        }
        return path;
    }

    // The arguments behind the name that the process was started by, each with a blank before it.
    [[nodiscard]] std::string Arguments() const {
        const ScopedFd file(openat(m_folder.Get(), "cmdline", O_RDONLY | O_CLOEXEC));
        std::string text;
        (void)ReadAtMost(file, kArgumentsLimit, text);
        text.resize(text.find_last_not_of('\0') + 1);  // a rewritten title is padded with nulls
        text.erase(0, std::min(text.find('\0'), text.size()));
        std::replace(text.begin(), text.end(), '\0', ' ');
        return text;
    }

  private:
    // Whether the file of that name is the one that the process runs.
    [[nodiscard]] bool IsExecutable(const std::string& path) const {
        struct stat named = {};
        struct stat running = {};
        return stat(path.c_str(), &named) == 0 &&
               fstatat(m_folder.Get(), "exe", &running, 0) == 0 && named.st_dev == running.st_dev &&
               named.st_ino == running.st_ino;
    }

    ScopedFd m_folder;
};

// Whether the process has ended within that time.
bool WaitUntilGone(int process, std::chrono::milliseconds patience) {
    const auto deadline = Clock::now() + patience;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd waited = {process, POLLIN, 0};
        const int ready = poll(&waited, 1, static_cast<int>(std::max<long>(left.count(), 0)));
        if (ready > 0) {
            return true;
        }
        if (ready == 0 || errno != EINTR) {
            return false;
        }
    }
}

// No error also if the process has just gone.
std::error_code Signal(int process, int signal) {
    if (pidfd_send_signal(process, signal, nullptr, 0) == 0 || errno == ESRCH) {
        return {};
    }
    return LastSystemError();
}

std::error_code EndOrKill(int process, std::chrono::milliseconds patience) {
    if (const auto error = Signal(process, SIGTERM)) {
        return error;
    }
    (void)Signal(process, SIGCONT);
    if (WaitUntilGone(process, patience)) {
        return {};
    }
    if (const auto error = Signal(process, SIGKILL)) {
        return error;
    }
    return WaitUntilGone(process, kPatienceAfterKill) ? std::error_code()
                                                      : PlatformError::kStillThere;
}

}  // namespace

bool IsProcessId(unsigned long pid) {
    return pid != 0 && pid <= static_cast<unsigned long>(std::numeric_limits<pid_t>::max());
}

ProcessCommand CommandOf(unsigned long pid) {
    if (!IsProcessId(pid)) {
        return {};
    }
    const ProcessFolder process(pid);
    std::string executable = process.Executable();
    if (executable.empty()) {
        return {};
    }
    return {std::move(executable), process.Arguments()};
}

std::error_code StopProcess(unsigned long pid, std::chrono::milliseconds patience) {
    if (!IsProcessId(pid) || pid == 1 || pid == static_cast<unsigned long>(getpid())) {
        return PlatformError::kNotToBeStopped;
    }
    const ScopedFd process(pidfd_open(static_cast<pid_t>(pid), 0));
    if (!process.IsOpen()) {
        return errno == ESRCH ? std::error_code() : LastSystemError();
    }
    if (const auto error = EndOrKill(process.Get(), patience)) {
        return error;
    }
    siginfo_t status = {};  // fails unless the process is our child
    (void)waitid(P_PIDFD, static_cast<id_t>(process.Get()), &status, WEXITED | WNOHANG);
    return {};
}

long CurrentThreadNumber() {
    return gettid();
}
