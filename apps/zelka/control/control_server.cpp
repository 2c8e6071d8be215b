#include "apps/zelka/control/control_server.h"

#include <wx/log.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "zelka_core/log/log2disk.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

using ZelkaCore::FromUtf8;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostConnections = 32;
// Besides them, those that are being told that they are too many.
constexpr std::size_t kMostRefused = 32;

constexpr unsigned kStackSize = 1U << 20;
constexpr unsigned kNormalPriority = 50;  // of 0 to 100

// After the system has refused to accept a connection: it has no descriptor left.
constexpr std::chrono::seconds kRest{1};

void Shorten(ZelkaCore::Deadline& deadline, const ZelkaCore::Deadline& other) {
    if (other && (!deadline || *other < *deadline)) {
        deadline = other;
    }
}

}  // namespace

ControlServer::ControlServer(ControlTarget& target, std::chrono::milliseconds patience)
    : CRunnable(false, -1, false), m_target(target), m_patience(patience) {
}

ControlServer::~ControlServer() {
    ControlServer::requestExit();
    (void)join();
}

bool ControlServer::Begin(const std::string& path) {
    HANDLE wake = INVALID_HANDLE_VALUE;
    auto error = CreateEventW(false, false, wake);
    m_wake.emplace(wake);
    if (!error) {
        error = m_listener.Open(path);
    }
    if (error) {
        wxLogWarning("There is no control socket '%s': %s", FromUtf8(path),
                     FromUtf8(error == std::errc::address_in_use ? "another agent listens there"
                                                                 : error.message()));
        return false;
    }
    start(kNormalPriority, true, kStackSize);
    return IsStarted();
}

void ControlServer::requestExit() {
    m_isExitRequested = true;
    (void)SetEvent(m_wake->Get());
    CRunnable::requestExit();
}

void ControlServer::ThreadMain() {
    const ZelkaCore::ThreadLogTarget log;
    auto& conditions = m_target.Dom()->Conditions();
    ZelkaCore::CWaitEngine engine(conditions);
    ZelkaCore::CConditions::Looks looks(conditions.LastRaise());
    Wait wait(engine, looks);
    while (!m_isExitRequested) {
        Accept();
        Serve();
        Sleep(engine, wait);
    }
    m_connections.clear();
    m_listener.Close();
}

void ControlServer::Accept() {
    if (m_acceptAt && Clock::now() < *m_acceptAt) {
        return;
    }
    m_acceptAt.reset();
    for (;;) {
        ScopedFd connection;
        if (const auto error = m_listener.Accept(connection)) {
            wxLogWarning("The control socket cannot accept a connection: %s",
                         FromUtf8(error.message()));
            m_acceptAt = Clock::now() + kRest;
            return;
        }
        if (!connection.IsOpen()) {
            return;
        }
        Admit(std::move(connection));
    }
}

void ControlServer::Admit(ScopedFd connection) {
    if (m_connections.size() >= kMostConnections + kMostRefused) {
        return;  // closed without a word
    }
    const bool isTrusted = IsPeerTrusted(connection.Get());
    const bool isTooMany = m_connections.size() >= kMostConnections;
    const auto wake = [event = m_wake->Get()] { (void)SetEvent(event); };
    m_connections.emplace_back(std::move(connection), m_target, wake, m_patience);
    if (!isTrusted) {
        m_connections.back().Refuse(
            {.error = std::string(kServiceInterface) + ".PermissionDenied"});
    } else if (isTooMany) {
        m_connections.back().Refuse(
            {.parameters = {{"limit", kMostConnections}},
             .error = std::string(kControlInterface) + ".TooManyConnections"});
    }
}

void ControlServer::Serve() {
    std::erase_if(m_connections, [](ControlConnection& connection) { return !connection.Step(); });
}

void ControlServer::Sleep(ZelkaCore::CWaitEngine& engine, Wait& wait) {
    std::vector<ZelkaCore::Awaited> items;
    items.reserve(m_connections.size() + 3);
    items.emplace_back(FindEvent(m_wake->Get()));
    ZelkaCore::Deadline deadline = m_acceptAt;
    if (!m_acceptAt) {
        items.emplace_back(ZelkaCore::AwaitedDescriptor{m_listener.Get(), Poller::kReadable, {}});
    }
    bool awaitsEvents = false;
    for (const ControlConnection& connection : m_connections) {
        items.emplace_back(connection.Awaited());
        Shorten(deadline, connection.Until());
        awaitsEvents = awaitsEvents || connection.AwaitsEvents();
    }
    if (awaitsEvents) {
        items.emplace_back("app.agentEvent");
    }
    wait.Begin(std::move(items), deadline);
    while (!wait.Look()) {
        engine.Sleep();
    }
}
