#include "platform/program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include "platform/error.h"
#include "platform/linux/output_pipe.h"
#include "platform/linux/pidfd.h"
#include "platform/linux/spawn_settings.h"
#include "platform/scoped_fd.h"

namespace {

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
    std::error_code Start(const std::string& program, std::vector<std::string> arguments) {
        SpawnSettings settings;
        std::error_code error = output.Open();
        error = error ? error : errors.Open();
        error = error ? error
                      : settings.UseDescriptors(SpawnSettings::kNullDevice, output.Writing(),
                                                errors.Writing());
        error = error ? error : settings.Start(m_pid, program, std::move(arguments));
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
    std::error_code error = run.Start(program, std::move(arguments));
    error = error ? error : run.ReadUntilItEnds();
    error = error ? error : run.CollectExitCode(exitCode);
    if (!error) {
        result = {exitCode, std::move(run.output.output), std::move(run.errors.output)};
    }
    return error;
}
