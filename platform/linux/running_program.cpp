#include "platform/running_program.h"

#include <fcntl.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "platform/error.h"
#include "platform/linux/input_pipe.h"
#include "platform/linux/killed_programs.h"
#include "platform/linux/output_pipe.h"
#include "platform/linux/pidfd.h"
#include "platform/linux/program_search.h"
#include "platform/linux/spawn_settings.h"

namespace {

class Program final : public RunningProgram {
  public:
    Program() = default;
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() override {
        if (m_pid != 0) {
            (void)Kill();
            CollectKilled(m_pid, std::move(m_process));
        }
    }

    std::error_code Begin(ProgramStart& start) {
        CollectLeftOver();
        m_hasGroup = start.hasOwnGroup;
        std::error_code error = m_output.Open(start.outputLimit);
        error = error ? error : m_errors.Open(start.outputLimit);
        if (!error && !start.input.empty()) {
            error = m_input.Open(std::move(start.input));
        }
        error = error ? error : Spawn(start);
        if (error) {
            return error;
        }
        m_output.CloseWriting();
        m_errors.CloseWriting();
        m_input.CloseReading();
        m_process.Reset(pidfd_open(m_pid, 0));
        if (!m_process.IsOpen()) {
            error = LastSystemError();
            m_pid = error == std::errc::no_such_process ? 0 : m_pid;  // collected behind our back
            return error;
        }
        m_input.Give();
        return {};
    }

    [[nodiscard]] int Get(Descriptor descriptor) const override {
        switch (descriptor) {
            case Descriptor::kEnd:
                return m_process.Get();
            case Descriptor::kOutput:
                return m_output.Reading();
            case Descriptor::kErrors:
                return m_errors.Reading();
            case Descriptor::kInput:
                return m_input.Writing();
        }
        return -1;
    }

    void Transfer() override {
        m_output.Take();
        m_errors.Take();
        m_input.Give();
    }

    // While the program has not been collected, its id, and so its group's, is no stranger's.
    std::error_code Kill() override {
        if (m_pid == 0) {
            return {};
        }
        const int result = m_process.IsOpen()
                               ? pidfd_send_signal(m_process.Get(), SIGKILL, nullptr, 0)
                               : kill(m_pid, SIGKILL);
        const std::error_code error = result == 0 ? std::error_code() : LastSystemError();
        if (error == std::errc::no_such_process) {
            return {};  // somebody else has collected it
        }
        if (m_hasGroup) {
            (void)kill(-m_pid, SIGKILL);
        }
        return error;
    }

    std::error_code Collect(ProgramEnd& end) override {
        siginfo_t status = {};
        int result = 0;
        do {
            result =
                waitid(P_PIDFD, static_cast<id_t>(m_process.Get()), &status, WEXITED | WNOHANG);
        } while (result != 0 && errno == EINTR);
        const std::error_code error = result == 0 ? std::error_code() : LastSystemError();
        if (!error && status.si_pid == 0) {
            return std::make_error_code(std::errc::resource_unavailable_try_again);
        }
        m_pid = 0;  // if somebody else collected it, the id may belong to a stranger by now
        m_process.Reset();
        m_input.Close();
        m_output.TakeTheRest();
        m_errors.TakeTheRest();
        if (!error) {
            end = {status.si_status, status.si_code != CLD_EXITED, std::move(m_output.output),
                   std::move(m_errors.output)};
        }
        return error;
    }

  private:
    std::error_code Spawn(ProgramStart& start) {
        SpawnSettings settings;
        std::error_code error = start.hasOwnGroup ? settings.UseOwnGroup() : std::error_code();
        if (!error && start.folder.IsOpen()) {
            error = settings.UseFolder(start.folder.Get());
        }
        const int input = m_input.Reading();
        error = error ? error
                      : settings.UseDescriptors(input < 0 ? SpawnSettings::kNullDevice : input,
                                                m_output.Writing(), m_errors.Writing());
        pid_t pid = 0;
        error = error ? error : StartProgram(settings, start, pid);
        m_pid = error ? 0 : pid;
        return error;
    }

    pid_t m_pid = 0;  // of the program while it has not been collected
    bool m_hasGroup = false;
    ScopedFd m_process;
    OutputPipe m_output;
    OutputPipe m_errors;
    InputPipe m_input;
};

}  // namespace

std::error_code OpenFolder(const std::string& path, ScopedFd& folder) {
    ScopedFd opened(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!opened.IsOpen()) {
        return LastSystemError();
    }
    folder = std::move(opened);
    return {};
}

std::error_code RunningProgram::Start(ProgramStart start,
                                      std::unique_ptr<RunningProgram>& program) {
    auto started = std::make_unique<Program>();
    if (const auto error = started->Begin(start)) {
        return error;
    }
    program = std::move(started);
    return {};
}
