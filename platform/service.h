#pragma once

#include "platform/error.h"

// The service manager, which is systemd. A process counts as started by it if the environment
// variable NOTIFY_SOCKET is set.

// The body of a service: runs on a thread of its own; argv[0] is the service's name.
using LPSERVICE_MAIN_FUNCTIONW = void (*)(DWORD argc, const wchar_t** argv);

struct SERVICE_TABLE_ENTRYW {
    const wchar_t* lpServiceName;
    LPSERVICE_MAIN_FUNCTIONW lpServiceProc;
};

// Connects to the service manager, runs the service of the table's first entry and returns true
// when it has stopped; controls are handled on the calling thread meanwhile. An all-null entry ends
// the table. False at once with ERROR_FAILED_SERVICE_CONTROLLER_CONNECT if no service manager
// started the process, or with another code if one did but cannot be served.
bool StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table);
