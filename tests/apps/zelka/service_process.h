#pragma once

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include "tests/platform/notify_socket.h"
#include "tests/support/scratch_folder.h"

inline constexpr const char* kInit = "STATUS=init";
inline constexpr const char* kRunning = "READY=1\nSTATUS=running";
inline constexpr const char* kStopping =
    "STOPPING=1\nSTATUS=stopping\nEXTEND_TIMEOUT_USEC=15000000";
inline constexpr const char* kAnsweredStopping = "STOPPING=1\nSTATUS=stopping";
inline constexpr const char* kStopped = "STATUS=stopped (exit code 0)";
inline constexpr const char* kGone = "exit status 0";
inline constexpr int kInterrogate = 4;
inline constexpr int kShutdown = 5;

// What the scripts share: a function that runs Lua code until the file `go` is there, and one that
// leaves a mark.
inline constexpr const char* kPrelude = R"(local app = {}
    local function spin()
        while not io.open("go") do end
    end
    local function mark(text)
        local file = assert(io.open("marks", "a"))
        file:write(text, "\n")
        file:close()
    end
    function app.shutdown() mark("shutdown") end
)";

// The built agent as a service, with this object in the place of the service manager.
class ServiceProcess {
  public:
    // `functions` are those of the application; `environment` holds further NAME=value for a shell.
    explicit ServiceProcess(const std::string& functions, const std::string& environment = "",
                            const std::string& registry = "") {
        (void)m_folder.Write("app.lua", kPrelude + functions + "\nreturn app\n");
        (void)m_folder.Write("registry.ini", registry);
        const std::string command =
            "cd " + m_folder.Path().string() + " && exec env -i NOTIFY_SOCKET=" + m_socket.Path() +
            " ZELKA_REGISTRY=registry.ini ZELKA_SERVICE_EXIT_STATUS=1 " + environment +
            " " ZELK_AGENT
            " --background --appname app --workdir work --lua_path '?.lua'"
            " --trace Srvc";
        m_pid = fork();
        if (m_pid == 0) {
            (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
            (void)execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(127);
        }
    }
    ~ServiceProcess() {
        if (m_pid != 0) {
            Signal(SIGKILL);
            (void)waitpid(m_pid, nullptr, 0);
        }
    }
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    [[nodiscard]] std::optional<std::string> Report() const { return m_socket.Receive(); }
    // All reports up to the end of the process, and how it ended.
    std::vector<std::string> ReportsToTheEnd() {
        int status = 0;
        (void)waitpid(m_pid, &status, 0);
        m_pid = 0;
        std::vector<std::string> reports;
        while (const auto report = m_socket.Receive(MSG_DONTWAIT)) {
            reports.push_back(*report);
        }
        reports.push_back(WIFEXITED(status) ? "exit status " + std::to_string(WEXITSTATUS(status))
                                            : "signal " + std::to_string(WTERMSIG(status)));
        return reports;
    }

    void Signal(int signal) const { (void)kill(m_pid, signal); }
    void Control(int code) const { (void)sigqueue(m_pid, SIGRTMIN, sigval{.sival_int = code}); }
    // The answer to an interrogation: everything sent before is handled by then.
    [[nodiscard]] std::optional<std::string> Interrogate() const {
        Control(kInterrogate);
        return Report();
    }
    // Asks until the script has left a further mark, for as long as `answer` is what comes back.
    void AwaitMark(const char* answer, const std::string& before = "") const {
        while (Marks() == before && Interrogate() == answer) {
        }
    }

    void LetGo() const { (void)m_folder.Write("go", ""); }
    void Configure(const std::string& text) const {
        (void)m_folder.Write("work/zelk_agent.ini", text);
    }
    [[nodiscard]] std::string Marks() const { return ReadFile(m_folder.Path() / "marks"); }
    [[nodiscard]] std::string Log() const { return ReadFile(m_folder.Path() / "work/log/app.log"); }

  private:
    const ScratchFolder m_folder;
    const NotifySocket m_socket;
    pid_t m_pid = 0;
};

inline void ExpectStart(const ServiceProcess& service) {
    EXPECT_EQ(service.Report(), kInit);
    EXPECT_EQ(service.Report(), kRunning);
}
