#pragma once

#include <atomic>
#include <chrono>
#include <list>
#include <optional>
#include <string>

#include "apps/zelka/control/control_connection.h"
#include "platform/events.h"
#include "platform/local_socket.h"
#include "zelka_core/store/wait_engine.h"
#include "zelka_core/system/runnable.h"

// The control socket of a running agent, served on a thread of its own that waits for nobody: what
// the application has to say is asked of whoever runs it. It wakes when somebody connects, and only
// then. The protocol is Varlink, the interface docs/com.orvane.zelka.varlink.
class ControlServer : public ZelkaCore::CRunnable {
  public:
    // Who takes none of its answers for so long is dropped.
    static constexpr std::chrono::milliseconds kPatience{10'000};

    // `target` outlives the server.
    explicit ControlServer(ControlTarget& target, std::chrono::milliseconds patience = kPatience);
    ~ControlServer() override;

    // Listens at `path` and starts the thread. False, with a warning logged, if that failed.
    bool Begin(const std::string& path);

    void requestExit() override;

  protected:
    const char* GetThreadName() override { return "ControlServer"; }
    void ThreadMain() override;

  private:
    // The one wait of the thread.
    class Wait : public ZelkaCore::CWait {
      public:
        using CWait::CWait;

      private:
        void OnWoken() override {}
    };

    void Accept();
    void Admit(ScopedFd connection);
    void Serve();
    void Sleep(ZelkaCore::CWaitEngine& engine, Wait& wait);

    // Constant once the thread runs.
    ControlTarget& m_target;
    const std::chrono::milliseconds m_patience;
    LocalListener m_listener;
    std::optional<ScopedHandle> m_wake;

    // The thread's.
    std::list<ControlConnection> m_connections;
    ZelkaCore::Deadline m_acceptAt;  // not before, as the system has refused to

    std::atomic<bool> m_isExitRequested = false;
};
