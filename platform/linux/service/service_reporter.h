#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>

#include "platform/linux/service/systemd.h"
#include "platform/service.h"

// All that systemd hears of the service goes through here, in the order in which it is reported:
// phases, the progress within one, answers to controls. Also keeps what was reported last, which
// decides on controls. Any thread.
class ServiceReporter {
  public:
    // Binds the reporter to the unit of this process, before the first report. A refusal to stop
    // that a crashed process of the unit has left behind is taken back.
    void Open(const std::string& unit);

    // Makes a report the one that counts and tells it. One of a state that there is none of is
    // refused with EINVAL, and the last one goes on to count.
    [[nodiscard]] std::error_code Report(const SERVICE_STATUS& status, const std::string& phase);

    // Tells again what systemd was told last.
    [[nodiscard]] std::error_code Repeat();

    // See platform/service.h.
    void ReportProgress(const std::string& text);
    void ExtendTimeout();

    [[nodiscard]] SERVICE_STATUS LastReport() const;
    // That of the last report of an end.
    [[nodiscard]] DWORD ExitCode() const { return m_exitCode; }

  private:
    using Clock = std::chrono::steady_clock;

    void Harden(const SERVICE_STATUS& status);
    [[nodiscard]] std::error_code TellLastReport(DWORD waitHint) const;

    std::optional<UnitStopRefusal> m_refusal;  // constant once opened

    // Held while systemd is told, which is what keeps the order. LastReport does not wait for it.
    std::mutex m_order;
    bool m_isHardened = false;  // guarded by m_order
    std::string m_phase;        // guarded by m_order
    std::string m_progress;     // guarded by m_order; empty: none

    mutable std::mutex m_mutex;
    SERVICE_STATUS m_last = {};  // guarded by m_mutex, written under m_order

    std::atomic<DWORD> m_exitCode = 0;
    std::atomic<Clock::rep> m_nextExtension = 0;  // when the next one may go out
};

// The reporter of this process; never destroyed, as threads may report to the very end.
ServiceReporter& TheServiceReporter();
