#pragma once

#include "platform/events.h"

// The service manager, which is systemd. A process counts as started by it if the environment
// variable NOTIFY_SOCKET is set.
//
// The service manager sends controls as signals to the process:
//
//     SIGTERM               stop (1), or shutdown (5) while the whole system goes down
//     RTMIN with a value    the control of that number: kill -q CODE -s RTMIN PID
//     RTMIN+1, +2, +3       the dumps 128, 129, 130: systemctl kill -s RTMIN+2 UNIT
//
// A control that the last report does not accept never reaches the handler: a stop or a shutdown
// while starting is held back until one is accepted, a stop that is not accepted otherwise is
// refused, and other controls are dropped while starting; what is refused or dropped leaves one
// line in the log. Interrogate and the dumps pass from the first report on.

inline constexpr DWORD SERVICE_WIN32_OWN_PROCESS = 16;

inline constexpr DWORD SERVICE_STOPPED = 1;
inline constexpr DWORD SERVICE_START_PENDING = 2;
inline constexpr DWORD SERVICE_STOP_PENDING = 3;
inline constexpr DWORD SERVICE_RUNNING = 4;

inline constexpr DWORD SERVICE_ACCEPT_STOP = 1;
inline constexpr DWORD SERVICE_ACCEPT_PAUSE_CONTINUE = 2;
inline constexpr DWORD SERVICE_ACCEPT_SHUTDOWN = 4;

inline constexpr DWORD SERVICE_CONTROL_STOP = 1;
inline constexpr DWORD SERVICE_CONTROL_PAUSE = 2;
inline constexpr DWORD SERVICE_CONTROL_CONTINUE = 3;
inline constexpr DWORD SERVICE_CONTROL_INTERROGATE = 4;
inline constexpr DWORD SERVICE_CONTROL_SHUTDOWN = 5;
inline constexpr DWORD SERVICE_CONTROL_DEVICEEVENT = 11;
inline constexpr DWORD SERVICE_CONTROL_HARDWAREPROFILECHANGE = 12;
inline constexpr DWORD SERVICE_CONTROL_POWEREVENT = 13;
// User-defined controls are those from 128 to 255. These have signals of their own.
inline constexpr DWORD SERVICE_CONTROL_DUMP_BRIEF = 128;
inline constexpr DWORD SERVICE_CONTROL_DUMP_STACK = 129;
inline constexpr DWORD SERVICE_CONTROL_DUMP_FULL = 130;

inline constexpr DWORD NO_ERROR = 0;
inline constexpr DWORD ERROR_CALL_NOT_IMPLEMENTED = 120;

// One report of a service about itself.
struct SERVICE_STATUS {
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;  // milliseconds
};

// Null on failure.
using SERVICE_STATUS_HANDLE = std::intptr_t;

// The body of a service: runs on a thread of its own; argv[0] is the service's name.
using LPSERVICE_MAIN_FUNCTIONW = void (*)(DWORD argc, const wchar_t** argv);

// Takes a control, on the thread that is in StartServiceCtrlDispatcherW. `eventType` is 0 and
// `eventData` null, as no control here has any. Must return soon: controls wait for each other.
using LPHANDLER_FUNCTION_EX = DWORD (*)(DWORD control, DWORD eventType, void* eventData,
                                        void* context);

struct SERVICE_TABLE_ENTRYW {
    const wchar_t* lpServiceName;
    LPSERVICE_MAIN_FUNCTIONW lpServiceProc;
};

// Keeps the controls of a service manager for the dispatcher, also those that come before it is
// there. To be called first in main(), as threads inherit the setting. Does nothing in a process
// that no service manager started.
void BlockServiceSignals();

// Takes that back, for a process that does not become a service: signals do what they always do,
// also those that came meanwhile. While there is no other thread yet.
void UnblockServiceSignals();

// Connects to the service manager, runs the service of the table's first entry and returns true
// when its body has returned; controls are handled on the calling thread meanwhile. An all-null
// entry ends the table. The service's name is that of the systemd unit without `.service`, or
// zelk_agent outside of one; further arguments are the words of $ZELKA_SERVICE_ARGS.
// False at once with ERROR_FAILED_SERVICE_CONTROLLER_CONNECT if no service manager started the
// process, EINVAL for a table without a service, EALREADY for a second call, or what the system
// said if signals or the thread are not to be had.
bool StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table);

// Binds the handler, once, from the body of the service. Null with EINVAL for the name of another
// service or without a handler, with EALREADY if one is bound.
SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerExW(const wchar_t* name,
                                                    LPHANDLER_FUNCTION_EX handler, void* context);

// Reports to the service manager. SERVICE_START_PENDING is the phase `init` of the unit's status
// text; SERVICE_RUNNING makes the unit active; SERVICE_STOP_PENDING makes it deactivating;
// SERVICE_STOPPED tells the exit code. A wait hint extends the manager's time limit. RUNNING or
// START_PENDING from inside the handler answers a control: the phase is told again as it is, and
// nothing else changes.
//
// While a running service's report leaves SERVICE_ACCEPT_STOP out, `systemctl stop` is refused too,
// as far as the process may say so (as root): see UnitStopRefusal.
// False with EBADF for a handle that is not the service's, or with what the system said.
bool SetServiceStatus(SERVICE_STATUS_HANDLE service, const SERVICE_STATUS* status);

// What the process is to end with after its service has stopped: 0, or, if the environment has
// ZELKA_SERVICE_EXIT_STATUS=1, the exit code of the last SERVICE_STOPPED report, by which systemd
// judges the service. The system keeps the low 8 bits of it; another code whose low 8 bits are 0
// becomes 255, so that a failure stays one.
int ServiceExitStatus();
