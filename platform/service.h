#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <system_error>
#include <vector>

#include "platform/error.h"

// The service manager, which is systemd. A process counts as started by it if the environment
// variable NOTIFY_SOCKET is set.
//
// The service manager sends controls as signals to the process:
//
//     SIGTERM               stop (1), or shutdown (5) while the whole system goes down
//     SIGHUP                parameter change (6), if the application has that control
//     RTMIN with a value    the control of that number: kill -q CODE -s RTMIN PID
//     RTMIN+1 and on        the controls for which the application wants a signal of their own
//
// A control that the last report does not accept never reaches the handler: a stop or a shutdown
// while starting is held back until one is accepted, a stop that is not accepted otherwise is
// refused, and other controls are dropped while starting, unless they are to pass; what is refused
// or dropped leaves one line in the log. Interrogate passes from the first report on.

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
inline constexpr DWORD SERVICE_CONTROL_PARAMCHANGE = 6;
inline constexpr DWORD SERVICE_CONTROL_DEVICEEVENT = 11;
inline constexpr DWORD SERVICE_CONTROL_HARDWAREPROFILECHANGE = 12;
inline constexpr DWORD SERVICE_CONTROL_POWEREVENT = 13;
// User-defined controls are those from 128 to 255.

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

// A control of the application's own.
struct ServiceControl {
    DWORD control;
    int signal;            // has the signal RTMIN plus this number; 0: none of its own
    bool doesPassAtStart;  // reaches the handler from the first report on
};

// What the layer has to know of the service that this process can be.
struct ServiceProfile {
    std::string name;                // outside of a unit
    std::string argumentsVariable;   // its environment variable with start parameters, as words
    std::string exitStatusVariable;  // set to 1: the process ends with the service's exit code
    std::vector<ServiceControl> controls;
};

// Keeps the controls of a service manager for the dispatcher, also those that come before it is
// there. To be called first in main(), as threads inherit the setting. In a process that no service
// manager started only the profile is kept.
void BlockServiceSignals(ServiceProfile profile);

// How often the service manager wants to hear that the service is alive, at least; 0: not at all.
// And tells it so, if it is time to: to be called more than twice as often. Any thread.
[[nodiscard]] std::chrono::microseconds WatchdogInterval();
void FeedWatchdog();

// Whether a service manager has started this process.
[[nodiscard]] bool IsStartedByManager();

// What the service manager calls the start of a unit that it runs this process for, or the shell
// which has run it; the same for all commands of that start. Empty for any other process, also for
// one that a service has started at some time.
[[nodiscard]] std::string NameOfServiceStart();

// Takes that back, for a process that does not become a service: signals do what they always do,
// also those that came meanwhile. While there is no other thread yet.
void UnblockServiceSignals();

// The command that the service manager would start a unit with, word by word. ENOENT if it knows no
// such unit, or one without a command; what the system said if it cannot be asked.
[[nodiscard]] std::error_code ReadServiceCommand(const std::string& unit,
                                                 std::vector<std::string>& command);

// Connects to the service manager, runs the service of the table's first entry and returns when its
// body has returned; controls are handled on the calling thread meanwhile. An all-null entry ends
// the table. The service's name is that of the systemd unit without `.service`, or the profile's.
// PlatformError::kNoServiceManager if none started the process, EINVAL for a table without a
// service, EALREADY for a second call, or what the system said if signals or the thread are not to
// be had.
[[nodiscard]] std::error_code StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table);

// Binds the handler, once, from the body of the service. EINVAL for the name of another service or
// without a handler, EALREADY if one is bound.
[[nodiscard]] std::error_code RegisterServiceCtrlHandlerExW(const wchar_t* name,
                                                            LPHANDLER_FUNCTION_EX handler,
                                                            void* context,
                                                            SERVICE_STATUS_HANDLE& service);

// Has the service stopped as if its manager had asked for it, by the same rules. Any thread.
void AskServiceToStop();

// Reports to the service manager. `phase` is what an operator reads of it, one line of UTF-8.
// SERVICE_RUNNING makes the unit active; SERVICE_STOP_PENDING makes it deactivating;
// SERVICE_STOPPED tells the exit code. A wait hint extends the manager's time limit. RUNNING or
// START_PENDING from inside the handler answers a control: what was reported last is reported again
// as it is, and nothing else changes.
//
// While a running service's report leaves SERVICE_ACCEPT_STOP out, `systemctl stop` is refused too,
// as far as the process may say so (as root): see UnitStopRefusal.
// EBADF for a handle that is not the service's, or what the system said.
[[nodiscard]] std::error_code SetServiceStatus(SERVICE_STATUS_HANDLE service,
                                               const SERVICE_STATUS& status,
                                               const std::string& phase);

// What a service that starts is at, one line of UTF-8, during long work: stands in the place of the
// phase until the next report, or until an empty text. Asks for patience, as ExtendServiceTimeout.
// Any thread. Nothing happens unless a service manager started this process, and a message that
// does not arrive is no failure.
void ReportServiceProgress(const std::string& text);

// Asks the service manager to wait for five more minutes from now before it gives the start up. May
// be called as often as there is something to tell: at most one message a second goes out. Any
// thread; as harmless as ReportServiceProgress.
void ExtendServiceTimeout();

// What the process is to end with after its service has stopped: 0, or, if the profile's variable
// asks for it, the exit code of the last SERVICE_STOPPED report, by which systemd judges the
// service, as ExitStatusOf has it.
int ServiceExitStatus();

// The exit code of a process that is to end with `code`. The system keeps the low 8 bits of it;
// another code whose low 8 bits are 0 becomes 255, so that a failure stays one.
int ExitStatusOf(DWORD code);
