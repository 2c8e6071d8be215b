#pragma once

#include <sys/signalfd.h>

#include <csignal>

#include "platform/service.h"

// As which signals a service manager's controls come: see platform/service.h.

// All signals that a service takes.
sigset_t ServiceSignals(const ServiceProfile& profile);

// The control that one of them stands for.
DWORD ControlOf(const signalfd_siginfo& signal, const ServiceProfile& profile);
