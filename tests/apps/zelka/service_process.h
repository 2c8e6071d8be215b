#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/scoped_fd.h"
#include "tests/support/scratch_folder.h"

// The built agent as a service, with this object in the place of the service manager.
class ServiceProcess {
  public:
    // Starts the agent with the Lua module `app`, whose text is given; `{dir}` in it stands for the
    // scratch folder. `environment` holds further NAME=value.
    explicit ServiceProcess(const std::string& app, std::vector<std::string> environment = {});
    ~ServiceProcess();
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    // The next report, waited for; "(nothing)" if none comes for long.
    std::string NextReport();
    // The next report if it comes within `patience`.
    std::optional<std::string> NextReport(std::chrono::milliseconds patience);
    // All reports up to the end of the process, whose wait status goes to `status`.
    std::vector<std::string> ReportsToTheEnd(int& status);

    void Signal(int signal) const;
    void Control(int code) const;
    // Sends interrogate and returns the answer: everything sent before is handled by then.
    std::string Interrogate();

    [[nodiscard]] std::string Log() const;
    [[nodiscard]] const ScratchFolder& Scratch() const { return m_scratch; }

  private:
    // Waits for the end of the process or a report; false if neither comes within `patience`.
    bool WaitForAnything(std::chrono::milliseconds patience) const;

    ScratchFolder m_scratch;
    ScopedFd m_socket;
    ScopedFd m_process;
    pid_t m_pid = 0;
};

// How often `text` holds `part`.
int CountOf(const std::string& text, const std::string& part);
