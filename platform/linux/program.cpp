#include "platform/program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include "platform/error.h"
#include "platform/linux/output_pipe.h"
#include "platform/linux/pidfd.h"
#include "platform/scoped_fd.h"

namespace {

std::error_code ErrorOf(int code) {
    return {code, std::generic_category()};
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

    std::error_code UseDescriptors(int output, int errors) {
        const std::array codes{
            posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0),
            posix_spawn_file_actions_adddup2(&m_actions, output, STDOUT_FILENO),
            posix_spawn_file_actions_adddup2(&m_actions, errors, STDERR_FILENO),
            posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1)};
        return ErrorOf(*std::max_element(codes.begin(), codes.end()));
    }

    std::error_code UseFreshSignals() {
        sigset_t none;
        sigset_t all;
        (void)sigemptyset(&none);
        (void)sigfillset(&all);
        (void)posix_spawnattr_setsigmask(&m_attributes, &none);
        (void)posix_spawnattr_setsigdefault(&m_attributes, &all);
        return ErrorOf(posix_spawnattr_setflags(&m_attributes,
                                                POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF));
    }

    std::error_code Start(pid_t& pid, const std::string& program,
                          std::vector<std::string>& arguments) {
        std::string name = program;
        std::vector<char*> argv{name.data()};
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        return ErrorOf(
            posix_spawn(&pid, program.c_str(), &m_actions, &m_attributes, argv.data(), environ));
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

    // The operations in their order.
    std::error_code Start(const std::string& program, std::vector<std::string>& arguments) {
        SpawnSettings settings;
        std::error_code error = output.Open();
        error = error ? error : errors.Open();
        error = error ? error : settings.UseDescriptors(output.Writing(), errors.Writing());
        error = error ? error : settings.UseFreshSignals();
        error = error ? error : settings.Start(m_pid, program, arguments);
        if (error) {
            m_pid = 0;
            return error;
        }
        output.CloseWriting();
        errors.CloseWriting();
        m_process.Reset(pidfd_open(m_pid, 0));
        if (m_process.IsOpen()) {
            return {};
        }
        if (errno == ESRCH) {
            m_pid = 0;  // it ended and was collected behind our back
        }
        return LastSystemError();
    }

    std::error_code ReadUntilItEnds() {
        for (;;) {
            std::array waited{pollfd{m_process.Get(), POLLIN, 0},
                              pollfd{output.Reading(), POLLIN, 0},
                              pollfd{errors.Reading(), POLLIN, 0}};
            if (poll(waited.data(), waited.size(), -1) < 0) {
                if (errno != EINTR) {
                    return LastSystemError();
                }
                continue;
            }
            if (waited[0].revents != 0) {
                output.TakeTheRest();
                errors.TakeTheRest();
                return {};
            }
            for (auto [pipe, ready] : {std::pair(&output, waited[1]), {&errors, waited[2]}}) {
                if (ready.revents != 0) {
                    pipe->Take();
                }
            }
        }
    }

    std::error_code CollectExitCode(unsigned long& exitCode) {
        siginfo_t status = {};
        int result = 0;
        do {
            result = waitid(P_PIDFD, static_cast<id_t>(m_process.Get()), &status, WEXITED);
        } while (result != 0 && errno == EINTR);
        m_pid = 0;  // if somebody else collected it, the id may belong to a stranger by now
        if (result != 0) {
            return LastSystemError();
        }
        exitCode = static_cast<unsigned long>(status.si_status);
        if (status.si_code != CLD_EXITED) {
            exitCode += 128;
        }
        return {};
    }

    OutputPipe output;
    OutputPipe errors;

  private:
    pid_t m_pid = 0;  // of the program while it has not been collected
    ScopedFd m_process;
};

}  // namespace

std::error_code RunProgram(const std::string& program, std::vector<std::string> arguments,
                           ProgramResult& result) {
    Run run;
    unsigned long exitCode = 0;
    std::error_code error = run.Start(program, arguments);
    error = error ? error : run.ReadUntilItEnds();
    error = error ? error : run.CollectExitCode(exitCode);
    if (!error) {
        result = {exitCode, std::move(run.output.output), std::move(run.errors.output)};
    }
    return error;
}
