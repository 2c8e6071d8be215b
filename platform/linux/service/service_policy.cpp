#include "platform/linux/service/service_policy.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace {

constexpr DWORD kMaximumErrno = 4095;  // the largest number that systemd takes for an error
constexpr DWORD kExitStatusMask = 0xFF;
constexpr int kExitStatusOfOtherFailures = 255;

ControlFate JudgeStop(DWORD accepted, const SERVICE_STATUS& last) {
    const bool isStop = accepted == SERVICE_ACCEPT_STOP;
    switch (last.dwCurrentState) {
        case 0:
        case SERVICE_START_PENDING:
            return ControlFate::kHold;
        case SERVICE_STOP_PENDING:
            if (isStop) {
                return ControlFate::kDrop;  // the service is about it
            }
            break;
        case SERVICE_STOPPED:
            return ControlFate::kDrop;
        default:
            break;
    }
    return (last.dwControlsAccepted & accepted) != 0 ? ControlFate::kDeliver : ControlFate::kRefuse;
}

}  // namespace

ControlFate JudgeControl(DWORD control, const SERVICE_STATUS& last,
                         std::span<const ServiceControl> own) {
    if (control == SERVICE_CONTROL_STOP) {
        return JudgeStop(SERVICE_ACCEPT_STOP, last);
    }
    if (control == SERVICE_CONTROL_SHUTDOWN) {
        return JudgeStop(SERVICE_ACCEPT_SHUTDOWN, last);
    }
    if (last.dwCurrentState == 0 || last.dwCurrentState == SERVICE_STOPPED) {
        return ControlFate::kDrop;
    }
    const bool doesPass = std::any_of(own.begin(), own.end(), [control](const ServiceControl& row) {
        return row.control == control && row.doesPassAtStart;
    });
    if (last.dwCurrentState == SERVICE_START_PENDING && control != SERVICE_CONTROL_INTERROGATE &&
        !doesPass) {
        return ControlFate::kDrop;
    }
    return ControlFate::kDeliver;
}

bool IsHardened(const SERVICE_STATUS& status) {
    return status.dwCurrentState == SERVICE_RUNNING &&
           (status.dwControlsAccepted & SERVICE_ACCEPT_STOP) == 0;
}

std::string NotificationText(const SERVICE_STATUS& status, const std::string& text) {
    std::string lines;
    if (status.dwCurrentState == SERVICE_RUNNING) {
        lines = "READY=1\n";
    } else if (status.dwCurrentState == SERVICE_STOP_PENDING) {
        lines = "STOPPING=1\n";
    }
    lines += "STATUS=" + text;
    std::replace(lines.end() - static_cast<std::ptrdiff_t>(text.size()), lines.end(), '\n', ' ');
    const DWORD code = status.dwWin32ExitCode;
    if (status.dwCurrentState == SERVICE_STOPPED && code != 0 && code <= kMaximumErrno) {
        lines += "\nERRNO=" + std::to_string(code);
    }
    if (status.dwWaitHint != 0) {
        lines += "\nEXTEND_TIMEOUT_USEC=" + std::to_string(status.dwWaitHint) + "000";
    }
    return lines;
}

int ExitStatusOf(DWORD code) {
    const auto kept = static_cast<int>(code & kExitStatusMask);
    return kept == 0 && code != 0 ? kExitStatusOfOtherFailures : kept;
}

std::string ServiceNameOf(const std::string& unit, const std::string& otherwise) {
    static constexpr std::string_view kSuffix = ".service";
    if (unit.size() <= kSuffix.size() || !unit.ends_with(kSuffix)) {
        return otherwise;
    }
    return unit.substr(0, unit.size() - kSuffix.size());
}
