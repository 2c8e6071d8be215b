#include "platform/linux/service/service_signals.h"

#include <unistd.h>

#include "platform/linux/service/systemd.h"

sigset_t ServiceSignals(const ServiceProfile& profile) {
    sigset_t signals;
    (void)sigemptyset(&signals);
    (void)sigaddset(&signals, SIGTERM);
    (void)sigaddset(&signals, SIGRTMIN);
    for (const ServiceControl& row : profile.controls) {
        (void)sigaddset(&signals, SIGRTMIN + row.signal);
        if (row.control == SERVICE_CONTROL_PARAMCHANGE) {
            (void)sigaddset(&signals, SIGHUP);
        }
    }
    return signals;
}

DWORD ControlOf(const signalfd_siginfo& signal, const ServiceProfile& profile) {
    const int number = static_cast<int>(signal.ssi_signo);
    if (number == SIGTERM) {
        return IsSystemGoingDown() ? SERVICE_CONTROL_SHUTDOWN : SERVICE_CONTROL_STOP;
    }
    if (number == SIGHUP) {
        return SERVICE_CONTROL_PARAMCHANGE;
    }
    for (const ServiceControl& row : profile.controls) {
        if (row.signal != 0 && number == SIGRTMIN + row.signal) {
            return row.control;
        }
    }
    return static_cast<DWORD>(signal.ssi_int);
}

void AskServiceToStop() {
    (void)kill(getpid(), SIGTERM);
}
