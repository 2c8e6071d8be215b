#include "platform/service_progress.h"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <atomic>
#include <chrono>

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kPatience = "EXTEND_TIMEOUT_USEC=300000000";
constexpr Clock::duration kInterval = std::chrono::seconds(1);

std::atomic<Clock::rep> g_nextMessage{0};  // on the steady clock

}  // namespace

void ReportServiceProgress(const std::string& status) {
    std::string line = status;
    std::replace(line.begin(), line.end(), '\n', ' ');  // a line each is the protocol's form
    (void)sd_notify(0, ("STATUS=" + line + "\n" + kPatience).c_str());
}

void ExtendServiceTimeout() {
    const Clock::rep now = Clock::now().time_since_epoch().count();
    Clock::rep next = g_nextMessage.load();
    if (now >= next && g_nextMessage.compare_exchange_strong(next, now + kInterval.count())) {
        (void)sd_notify(0, kPatience);
    }
}
