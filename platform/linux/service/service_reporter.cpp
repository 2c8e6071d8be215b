#include "platform/linux/service/service_reporter.h"

#include <systemd/sd-daemon.h>

#include "platform/linux/service/service_policy.h"

namespace {

constexpr const char* kPatience = "EXTEND_TIMEOUT_USEC=300000000";
constexpr std::chrono::seconds kExtensionInterval{1};

std::error_code Tell(const std::string& lines) {
    const int result = sd_notify(0, lines.c_str());
    return result >= 0 ? std::error_code() : std::error_code(-result, std::generic_category());
}

}  // namespace

void ServiceReporter::Open(const std::string& unit) {
    m_refusal.emplace(unit);
    m_refusal->Set(false);
}

std::error_code ServiceReporter::Report(const SERVICE_STATUS& status, const std::string& phase) {
    if (status.dwCurrentState < SERVICE_STOPPED || status.dwCurrentState > SERVICE_RUNNING) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    const std::lock_guard order(m_order);
    if (status.dwCurrentState == SERVICE_STOPPED) {
        m_exitCode = status.dwWin32ExitCode;
    }
    Harden(status);
    {
        const std::lock_guard lock(m_mutex);
        m_last = status;
    }
    m_phase = phase;
    m_progress.clear();
    return TellLastReport(status.dwWaitHint);
}

// A stop that is under way leaves the refusal to the end, when nobody can ask for one any more.
void ServiceReporter::Harden(const SERVICE_STATUS& status) {
    const bool isHardened =
        IsHardened(status) || (m_isHardened && status.dwCurrentState == SERVICE_STOP_PENDING);
    if (isHardened != m_isHardened) {
        m_isHardened = isHardened;
        m_refusal->Set(isHardened);
    }
}

std::error_code ServiceReporter::Repeat() {
    const std::lock_guard order(m_order);
    return TellLastReport(0);
}

std::error_code ServiceReporter::TellLastReport(DWORD waitHint) const {
    SERVICE_STATUS status = LastReport();
    status.dwWaitHint = waitHint;
    return Tell(NotificationText(status, m_progress.empty() ? m_phase : m_progress));
}

void ServiceReporter::ReportProgress(const std::string& text) {
    const std::lock_guard order(m_order);
    m_progress = text;
    if (text.empty()) {
        (void)TellLastReport(0);
        return;
    }
    (void)Tell(NotificationText({}, text) + "\n" + kPatience);
}

void ServiceReporter::ExtendTimeout() {
    const Clock::rep now = Clock::now().time_since_epoch().count();
    Clock::rep next = m_nextExtension.load();
    const Clock::rep then = now + Clock::duration(kExtensionInterval).count();
    if (now >= next && m_nextExtension.compare_exchange_strong(next, then)) {
        (void)Tell(kPatience);
    }
}

SERVICE_STATUS ServiceReporter::LastReport() const {
    const std::lock_guard lock(m_mutex);
    return m_last;
}

ServiceReporter& TheServiceReporter() {
    static auto* reporter = new ServiceReporter;
    return *reporter;
}

std::chrono::microseconds WatchdogInterval() {
    std::uint64_t interval = 0;
    return std::chrono::microseconds(sd_watchdog_enabled(0, &interval) > 0 ? interval : 0);
}

void FeedWatchdog() {
    using Clock = std::chrono::steady_clock;
    static const auto interval = WatchdogInterval();
    static std::atomic<Clock::duration> fed{Clock::duration::min() / 2};
    const auto now = Clock::now().time_since_epoch();
    if (interval.count() != 0 && now - fed.load() >= interval / 4) {
        fed.store(now);
        (void)sd_notify(0, "WATCHDOG=1");
    }
}
