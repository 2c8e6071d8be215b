#include "zelka_core/system/processes.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wx/log.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <csignal>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/pidfd.h"
#include "platform/scoped_fd.h"
#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kPidFileLimit = 64;
constexpr std::size_t kArgumentsLimit = 65'536;
constexpr std::chrono::seconds kDefaultPatience{10};

bool IsProcessId(unsigned long pid) {
    return pid != 0 && pid <= static_cast<unsigned long>(std::numeric_limits<pid_t>::max());
}

// The first `limit` bytes of a file, or what could be read of them.
std::string ReadSome(int fd, std::size_t limit) {
    std::string content(limit, '\0');
    std::size_t length = 0;
    while (length < limit) {
        const ssize_t count = read(fd, content.data() + length, limit - length);
        if (count == 0 || (count < 0 && errno != EINTR)) {
            break;
        }
        length += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    content.resize(length);
    return content;
}

std::string_view WithoutSurroundingBlanks(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

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
        std::string text = ReadSome(file.Get(), kArgumentsLimit);
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

// The error code of a signal that could not be sent; 0 also if the process has just gone.
int Signal(int process, int signal) {
    if (pidfd_send_signal(process, signal, nullptr, 0) == 0 || errno == ESRCH) {
        return 0;
    }
    return errno;
}

// Says why the process could not be stopped; nothing when it is gone.
std::optional<std::string> StopProcess(int process, std::chrono::milliseconds patience) {
    if (const int code = Signal(process, SIGTERM); code != 0) {
        return std::generic_category().message(code);
    }
    (void)Signal(process, SIGCONT);
    if (WaitUntilGone(process, patience)) {
        return {};
    }
    if (const int code = Signal(process, SIGKILL); code != 0) {
        return std::generic_category().message(code);
    }
    if (WaitUntilGone(process, kDefaultPatience)) {
        return {};
    }
    return "it is still there after being killed";
}

bool RefuseToKill(unsigned long pid, const std::string& reason) {
    wxLogWarning("Process %lu was not stopped: %s", pid, FromUtf8(reason));
    return false;
}

}  // namespace

unsigned long ReadPidFile(const wxString& path) {
    const ScopedFd file(open(ToUtf8(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status = {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size > static_cast<off_t>(kPidFileLimit)) {
        return 0;
    }
    const std::string content = ReadSome(file.Get(), kPidFileLimit);
    const std::string_view number = WithoutSurroundingBlanks(content);
    unsigned long pid = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), pid);
    const bool whole = error == std::errc() && end == number.data() + number.size();
    return whole && IsProcessId(pid) ? pid : 0;
}

wxString GetCommandLineW(unsigned long pid) {
    if (!IsProcessId(pid)) {
        return {};
    }
    const ProcessFolder process(pid);
    const std::string executable = process.Executable();
    if (executable.empty()) {
        return {};
    }
    // Each for itself, so that bytes in an argument cannot change how the path is read.
    return FromUtf8(executable) + FromUtf8(process.Arguments());
}

bool KillProcess(unsigned long pid, int patience) {
    if (!IsProcessId(pid) || pid == 1 || pid == static_cast<unsigned long>(getpid())) {
        return RefuseToKill(pid, "not a process that may be stopped");
    }
    const ScopedFd process(pidfd_open(static_cast<pid_t>(pid), 0));
    if (!process.IsOpen()) {
        return errno == ESRCH || RefuseToKill(pid, std::generic_category().message(errno));
    }
    const std::chrono::milliseconds given{patience};
    if (const auto reason = StopProcess(process.Get(), patience < 0 ? kDefaultPatience : given)) {
        return RefuseToKill(pid, *reason);
    }
    siginfo_t status = {};  // fails unless the process is our child
    (void)waitid(P_PIDFD, static_cast<id_t>(process.Get()), &status, WEXITED | WNOHANG);
    return true;
}

}  // namespace ZelkaCore
