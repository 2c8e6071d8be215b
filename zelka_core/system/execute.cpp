#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wx/log.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/pidfd.h"
#include "platform/scoped_fd.h"
#include "zelka_core/system/output_pipe.h"
#include "zelka_core/system/processes.h"
#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

// Splits as Execute promises. Nothing if the last double quote is not closed.
std::optional<std::vector<std::string>> SplitArguments(const std::string& text) {
    std::vector<std::string> words;
    bool inWord = false;
    bool inQuotes = false;
    for (const char c : text) {
        if (!inQuotes && (c == ' ' || c == '\t')) {
            inWord = false;
            continue;
        }
        if (!inWord) {
            words.emplace_back();
            inWord = true;
        }
        if (c == '"') {
            inQuotes = !inQuotes;
        } else {
            words.back() += c;
        }
    }
    if (inQuotes) {
        return std::nullopt;
    }
    return words;
}

// How the program is started: with which descriptors and which signal settings.
class SpawnSettings {
  public:
    SpawnSettings() {
        (void)posix_spawn_file_actions_init(&m_actions);
        (void)posix_spawnattr_init(&m_attributes);
    }
    ~SpawnSettings() {
        (void)posix_spawnattr_destroy(&m_attributes);
        (void)posix_spawn_file_actions_destroy(&m_actions);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    // An error code, 0 for success.
    int UseDescriptors(int output, int errors) {
        const std::array codes{
            posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0),
            posix_spawn_file_actions_adddup2(&m_actions, output, STDOUT_FILENO),
            posix_spawn_file_actions_adddup2(&m_actions, errors, STDERR_FILENO),
            posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1)};
        return *std::max_element(codes.begin(), codes.end());
    }

    int UseFreshSignals() {
        sigset_t none;
        sigset_t all;
        (void)sigemptyset(&none);
        (void)sigfillset(&all);
        (void)posix_spawnattr_setsigmask(&m_attributes, &none);
        (void)posix_spawnattr_setsigdefault(&m_attributes, &all);
        return posix_spawnattr_setflags(&m_attributes,
                                        POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }

    int Start(pid_t& pid, const std::string& program, std::vector<std::string>& arguments) {
        std::string name = program;
        std::vector<char*> argv{name.data()};
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        return posix_spawn(&pid, program.c_str(), &m_actions, &m_attributes, argv.data(), environ);
    }

  private:
    posix_spawn_file_actions_t m_actions = {};
    posix_spawnattr_t m_attributes = {};
};

// One run of a program. If it is given up while the program runs, the program is killed.
class Run {
  public:
    Run() = default;
    ~Run() {
        if (m_pid != 0) {
            (void)kill(m_pid, SIGKILL);
            while (waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    // The operations in their order; each gives an error code, 0 for success.
    int Start(const std::string& program, std::vector<std::string>& arguments) {
        if (!output.Open() || !errors.Open()) {
            return errno;
        }
        SpawnSettings settings;
        int code = settings.UseDescriptors(output.Writing(), errors.Writing());
        code = code != 0 ? code : settings.UseFreshSignals();
        code = code != 0 ? code : settings.Start(m_pid, program, arguments);
        if (code != 0) {
            m_pid = 0;
            return code;
        }
        output.CloseWriting();
        errors.CloseWriting();
        m_process.Reset(pidfd_open(m_pid, 0));
        code = m_process.IsOpen() ? 0 : errno;
        if (code == ESRCH) {
            m_pid = 0;  // it ended and was collected behind our back
        }
        return code;
    }

    int ReadUntilItEnds() {
        for (;;) {
            std::array waited{pollfd{m_process.Get(), POLLIN, 0},
                              pollfd{output.Reading(), POLLIN, 0},
                              pollfd{errors.Reading(), POLLIN, 0}};
            if (poll(waited.data(), waited.size(), -1) < 0) {
                if (errno != EINTR) {
                    return errno;
                }
                continue;
            }
            if (waited[0].revents != 0) {
                output.TakeTheRest();
                errors.TakeTheRest();
                return 0;
            }
            for (auto [pipe, ready] : {std::pair(&output, waited[1]), {&errors, waited[2]}}) {
                if (ready.revents != 0) {
                    pipe->Take();
                }
            }
        }
    }

    int CollectExitCode(unsigned long& exitCode) {
        siginfo_t status = {};
        int result = 0;
        do {
            result = waitid(P_PIDFD, static_cast<id_t>(m_process.Get()), &status, WEXITED);
        } while (result != 0 && errno == EINTR);
        m_pid = 0;  // if somebody else collected it, the id may belong to a stranger by now
        if (result != 0) {
            return errno;
        }
        exitCode = static_cast<unsigned long>(status.si_status);
        if (status.si_code != CLD_EXITED) {
            exitCode += 128;
        }
        return 0;
    }

    OutputPipe output;
    OutputPipe errors;

  private:
    pid_t m_pid = 0;  // of the program while it has not been collected
    ScopedFd m_process;
};

bool Refuse(const std::string& program, const std::string& reason) {
    wxLogWarning("%s could not be run: %s", FromUtf8(program), FromUtf8(reason));
    return false;
}

}  // namespace

bool Execute(const wxString& program, const wxString& arguments, wxString& output,
             unsigned long& exitCode, wxString& errors) {
    const std::string path = ToUtf8(program);
    const std::string line = ToUtf8(arguments);
    if ((path + line).find('\0') != std::string::npos) {
        return Refuse(path, "a null character in the path or the arguments");
    }
    auto words = SplitArguments(line);
    if (!words) {
        return Refuse(path, "a double quote is not closed in the arguments: " + line);
    }
    Run run;
    unsigned long code = 0;
    int error = run.Start(path, *words);
    error = error != 0 ? error : run.ReadUntilItEnds();
    error = error != 0 ? error : run.CollectExitCode(code);
    if (error != 0) {
        return Refuse(path, std::generic_category().message(error));
    }
    exitCode = code;
    output = run.output.Text(path, "standard output");
    errors = run.errors.Text(path, "standard error");
    return true;
}

}  // namespace ZelkaCore
