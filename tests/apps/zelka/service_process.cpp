#include "tests/apps/zelka/service_process.h"

#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <cstring>
#include <stdexcept>

#include "platform/linux/pidfd.h"

namespace {

constexpr std::chrono::seconds kLong{60};

std::string ReplaceAll(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

ScopedFd BindSocket(const std::string& path) {
    ScopedFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    // NOLINTNEXTLINE(*-reinterpret-cast): as the interface of sockets wants it
    if (bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("no socket at " + path);
    }
    return fd;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

ServiceProcess::ServiceProcess(const std::string& app, std::vector<std::string> environment) {
    const std::string folder = m_scratch.Path().string();
    m_socket = BindSocket(folder + "/notify");
    m_scratch.Write("app.lua", ReplaceAll(app, "{dir}", folder));

    std::vector<std::string> arguments{
        ZELK_AGENT,       "--background", "--appname",       "app",     "--workdir",
        folder + "/work", "--lua_path",   folder + "/?.lua", "--trace", "Srvc"};
    environment.push_back("NOTIFY_SOCKET=" + folder + "/notify");
    environment.emplace_back("ZELKA_SERVICE_EXIT_STATUS=1");
    environment.push_back("ZELKA_REGISTRY=" + folder + "/registry.ini");
    if (posix_spawn(&m_pid, ZELK_AGENT, nullptr, nullptr, Pointers(arguments).data(),
                    Pointers(environment).data()) != 0) {
        throw std::runtime_error("the agent cannot be started");
    }
    m_process.Reset(pidfd_open(m_pid, 0));
}

ServiceProcess::~ServiceProcess() {
    if (m_pid != 0) {
        (void)kill(m_pid, SIGKILL);
        (void)waitpid(m_pid, nullptr, 0);
    }
}

bool ServiceProcess::WaitForAnything(std::chrono::milliseconds patience) const {
    std::array<pollfd, 2> fds{pollfd{.fd = m_socket.Get(), .events = POLLIN, .revents = 0},
                              pollfd{.fd = m_process.Get(), .events = POLLIN, .revents = 0}};
    return poll(fds.data(), fds.size(), static_cast<int>(patience.count())) > 0;
}

std::optional<std::string> ServiceProcess::NextReport(std::chrono::milliseconds patience) {
    std::array<char, 4096> text{};
    ssize_t size = recv(m_socket.Get(), text.data(), text.size(), 0);
    if (size < 0 && WaitForAnything(patience)) {
        size = recv(m_socket.Get(), text.data(), text.size(), 0);
    }
    return size < 0 ? std::nullopt
                    : std::optional(std::string(text.data(), static_cast<std::size_t>(size)));
}

std::string ServiceProcess::NextReport() {
    return NextReport(kLong).value_or("(nothing)");
}

std::vector<std::string> ServiceProcess::ReportsToTheEnd(int& status) {
    std::vector<std::string> reports;
    while (auto report = NextReport(kLong)) {
        reports.push_back(*report);
    }
    if (waitpid(m_pid, &status, WNOHANG) != m_pid) {
        throw std::runtime_error("the service does not end");
    }
    m_pid = 0;
    return reports;
}

void ServiceProcess::Signal(int signal) const {
    (void)kill(m_pid, signal);
}

void ServiceProcess::Control(int code) const {
    (void)sigqueue(m_pid, SIGRTMIN, sigval{.sival_int = code});
}

std::string ServiceProcess::Interrogate() {
    constexpr int kInterrogate = 4;
    Control(kInterrogate);
    return NextReport();
}

std::string ServiceProcess::Log() const {
    return ReadFile(m_scratch.Path() / "work/log/app.log");
}

int CountOf(const std::string& text, const std::string& part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}
